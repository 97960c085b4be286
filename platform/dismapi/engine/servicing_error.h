// servicing_error.h - a failure on its way to the API's edge: the code a caller gets and the reason
// that goes into the log.
#pragma once

#include "codes.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace kestro::servicing {

class ServicingError : public std::runtime_error {
  public:
    ServicingError(Code code, const std::string& reason) : std::runtime_error(reason), code_(code)
    {
    }
    Code GetCode() const { return code_; }

  private:
    Code code_;
};

inline Code CodeOfErrno(int error)
{
    switch (error) {
    case ENOENT:
        return code::file_not_found;
    case ENOTDIR:
        return code::path_not_found;
    case EACCES:
    case EPERM:
    case EROFS:
        return code::access_denied;
    case EMFILE:
    case ENFILE:
        return code::too_many_open_files;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return code::disk_full;
    case ENOMEM:
        return code::out_of_memory;
    case ENAMETOOLONG:
    case EILSEQ:
        return code::invalid_name;
    case EIO:
        return code::read_fault;
    case ENOTCONN: // nobody serves the mounted image any more
        return code::needs_remount;
    default:
        return code::unexpected;
    }
}

// The failure of a system call, by errno.
inline ServicingError SystemError(const std::string& what)
{
    const int error = errno;
    return ServicingError(CodeOfErrno(error), what + ": " + std::strerror(error));
}

} // namespace kestro::servicing
