// library.hpp - Kestro.dll loaded at run time, and handles that close themselves.
#ifndef KESTRO_LIBRARY_HPP
#define KESTRO_LIBRARY_HPP

#include "report.hpp"

#include <stdexcept>
#include <string>
#include <utility>

#include <windows.h>

namespace kestro {

class LoadError : public std::runtime_error {
  public:
    LoadError(const std::string& what, DWORD error) : std::runtime_error(what), error_(error) {}
    DWORD LastError() const { return error_; }

  private:
    DWORD error_;
};

// Kestro.dll, loaded from the given full path. What it needs itself comes from the system's own folder
// only, so that no DismApi.dll planted beside the program or in the current folder is picked up.
class Library {
  public:
    explicit Library(const std::wstring& path)
        : module_(LoadLibraryExW(path.c_str(), nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32))
    {
        if (module_ == nullptr)
            throw LoadError("cannot load " + detail::Utf8(path), GetLastError());
    }
    ~Library() { FreeLibrary(module_); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    HMODULE Module() const { return module_; }

    // Get<decltype(::MountWimImage)>("MountWimImage"): typed by kestro.h, and nothing is linked.
    template <class Function>
    Function* Get(const char* name) const
    {
        const FARPROC function = GetProcAddress(module_, name);
        if (function == nullptr)
            throw LoadError(std::string("Kestro.dll has no function ") + name, GetLastError());
        return reinterpret_cast<Function*>(reinterpret_cast<void*>(function));
    }

  private:
    HMODULE module_;
};

// A handle of the system, as OpenVdFile and OpenPhDrive return it; closed with the object.
class Handle {
  public:
    Handle() = default;
    explicit Handle(void* handle) : handle_(handle) {}
    Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    Handle& operator=(Handle&& other) noexcept
    {
        std::swap(handle_, other.handle_);
        return *this;
    }
    ~Handle()
    {
        if (handle_ != nullptr)
            CloseHandle(handle_);
    }

    explicit operator bool() const { return handle_ != nullptr; }
    void* Get() const { return handle_; }
    // Gives the handle up to the caller.
    void* Release() { return std::exchange(handle_, nullptr); }

  private:
    void* handle_ = nullptr;
};

} // namespace kestro

#endif
