// wim_file.cpp - image files, through libwim.
#include "wim_file.h"

#include "file_system.h"
#include "servicing_error.h"
#include "wim_claims.h"

#include <fcntl.h>
#include <openssl/evp.h>

#include <algorithm>
#include <cstdint>
#include <mutex>

namespace kestro::servicing {
namespace {

// libwim leaves the system's reason in errno for the failures that have one.
Code CodeOfWimError(int error, int systemError)
{
    switch (error) {
    case WIMLIB_ERR_NOT_A_WIM_FILE:
    case WIMLIB_ERR_INVALID_HEADER:
    case WIMLIB_ERR_INVALID_METADATA_RESOURCE:
    case WIMLIB_ERR_INVALID_LOOKUP_TABLE_ENTRY:
    case WIMLIB_ERR_INVALID_INTEGRITY_TABLE:
    case WIMLIB_ERR_INVALID_COMPRESSION_TYPE:
    case WIMLIB_ERR_INVALID_CHUNK_SIZE:
    case WIMLIB_ERR_INVALID_PART_NUMBER:
    case WIMLIB_ERR_INVALID_REPARSE_DATA:
    case WIMLIB_ERR_INVALID_RESOURCE_HASH:
    case WIMLIB_ERR_INVALID_UTF16_STRING:
    case WIMLIB_ERR_UNEXPECTED_END_OF_FILE:
    case WIMLIB_ERR_UNKNOWN_VERSION:
    case WIMLIB_ERR_RESOURCE_NOT_FOUND:
    case WIMLIB_ERR_METADATA_NOT_FOUND:
    case WIMLIB_ERR_IMAGE_COUNT:
    case WIMLIB_ERR_DECOMPRESSION:
    case WIMLIB_ERR_INTEGRITY:
    case WIMLIB_ERR_XML:
        return code::bad_format;
    case WIMLIB_ERR_INVALID_IMAGE:
        return code::image_index_missing;
    case WIMLIB_ERR_WIM_IS_READONLY:
        return code::image_file_read_only;
    case WIMLIB_ERR_IS_SPLIT_WIM:
    case WIMLIB_ERR_SPLIT_INVALID:
        return code::split_image;
    case WIMLIB_ERR_UNSUPPORTED:
    case WIMLIB_ERR_UNSUPPORTED_FILE:
    case WIMLIB_ERR_WIM_IS_ENCRYPTED:
    case WIMLIB_ERR_INVALID_PIPABLE_WIM:
        return code::not_supported;
    case WIMLIB_ERR_INVALID_UTF8_STRING:
        return code::invalid_name;
    case WIMLIB_ERR_NOMEM:
        return code::out_of_memory;
    case WIMLIB_ERR_ABORTED_BY_PROGRESS:
        return code::cancelled;
    case WIMLIB_ERR_ALREADY_LOCKED:
        return code::busy;
    case WIMLIB_ERR_NOTDIR:
        return code::path_not_found;
    default:
        break;
    }
    if (systemError != 0)
        return CodeOfErrno(systemError);
    switch (error) {
    case WIMLIB_ERR_OPEN:
    case WIMLIB_ERR_PATH_DOES_NOT_EXIST:
        return code::file_not_found;
    case WIMLIB_ERR_READ:
        return code::read_fault;
    case WIMLIB_ERR_WRITE:
        return code::write_fault;
    default:
        return code::unexpected;
    }
}

// Calls libwim with a clean errno and throws on failure.
template <class Call>
void Check(const std::string& what, Call call)
{
    errno = 0;
    const int error = call();
    const int systemError = errno;
    if (error == WIMLIB_ERR_SUCCESS)
        return;
    std::string reason =
        what + ": " + wimlib_get_error_string(static_cast<wimlib_error_code>(error));
    if (systemError != 0)
        reason += std::string(" (") + std::strerror(systemError) + ")";
    throw ServicingError(CodeOfWimError(error, systemError), reason);
}

FileDescriptor OpenToLook(const std::string& path)
{
    FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!file)
        throw SystemError("cannot open the image file " + path);
    return file;
}

void InitialiseLibrary()
{
    static std::once_flag once;
    std::call_once(once, [] {
        Check("libwim", [] { return wimlib_global_init(WIMLIB_INIT_FLAG_DEFAULT_CASE_SENSITIVE); });
    });
}

} // namespace

WimFile::WimFile(const std::string& path, Access access, bool checkIntegrity, Progress progress)
    : path_(path), progress_(std::move(progress))
{
    InitialiseLibrary();
    RequireCredible(OpenToLook(path).Get(), path);
    int flags = WIMLIB_OPEN_FLAG_ERROR_IF_SPLIT;
    if (access == Access::Write)
        flags |= WIMLIB_OPEN_FLAG_WRITE_ACCESS;
    if (checkIntegrity)
        flags |= WIMLIB_OPEN_FLAG_CHECK_INTEGRITY;
    WIMStruct* wim = nullptr;
    Check("cannot open the image file " + path, [&] {
        return wimlib_open_wim_with_progress(path.c_str(), flags, &wim, OnProgress, this);
    });
    wim_.reset(wim);
}

wimlib_progress_status WimFile::OnProgress(wimlib_progress_msg message, wimlib_progress_info* info,
                                           void* context)
{
    auto* const file = static_cast<WimFile*>(context);
    unsigned long long done = 0, total = 0;
    if (message == WIMLIB_PROGRESS_MSG_EXTRACT_STREAMS) {
        done = info->extract.completed_bytes;
        total = info->extract.total_bytes;
    } else if (message == WIMLIB_PROGRESS_MSG_WRITE_STREAMS) {
        done = info->write_streams.completed_bytes;
        total = info->write_streams.total_bytes;
    }
    if (total != 0 && file->progress_) {
        const auto percent = static_cast<unsigned>(done * 100 / total);
        if (percent != file->lastPercent_) {
            file->lastPercent_ = percent;
            if (!file->progress_(percent, 100))
                return WIMLIB_PROGRESS_STATUS_ABORT;
        }
    }
    return WIMLIB_PROGRESS_STATUS_CONTINUE;
}

wimlib_wim_info WimFile::Info() const
{
    wimlib_wim_info info = {};
    wimlib_get_wim_info(wim_.get(), &info);
    return info;
}

unsigned WimFile::FindImage(const std::string& name) const
{
    for (unsigned index = 1; index <= Info().image_count; ++index) {
        const char* const found = wimlib_get_image_name(wim_.get(), static_cast<int>(index));
        if (found != nullptr && name == found)
            return index;
    }
    throw ServicingError(code::invalid_image_name, path_ + " holds no image named " + name);
}

unsigned WimFile::ImageCount() const
{
    return Info().image_count;
}

unsigned WimFile::BootIndex() const
{
    return Info().boot_index;
}

std::string WimFile::Property(unsigned index, const std::string& name) const
{
    const char* const value =
        wimlib_get_image_property(wim_.get(), static_cast<int>(index), name.c_str());
    return value != nullptr ? value : "";
}

std::vector<StoredFile> WimFile::Files(unsigned index) const
{
    std::vector<StoredFile> files;
    const auto keep = [](const wimlib_dir_entry* entry, void* context) {
        const std::string path = entry->full_path;
        // A slash within a name would make the path another file's.
        const auto slashes = static_cast<std::size_t>(std::count(path.begin(), path.end(), '/'));
        const bool isLink = (entry->attributes & WIMLIB_FILE_ATTRIBUTE_REPARSE_POINT) != 0;
        const bool isDirectory = (entry->attributes & WIMLIB_FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (slashes != entry->depth || (isDirectory && !isLink))
            return 0;
        StoredFile& file = static_cast<std::vector<StoredFile>*>(context)->emplace_back();
        file.path = path;
        if (const auto& content = entry->streams[0].resource; !isLink) {
            file.position = content.offset;
            file.size = content.uncompressed_size;
        }
        return 0;
    };
    Check("cannot list image " + std::to_string(index) + " of " + path_, [&] {
        return wimlib_iterate_dir_tree(wim_.get(), static_cast<int>(index), "/",
                                       WIMLIB_ITERATE_DIR_TREE_FLAG_RECURSIVE, keep, &files);
    });
    return files;
}

void WimFile::Extract(unsigned index, const std::string& directory) const
{
    Check("cannot extract image " + std::to_string(index) + " of " + path_, [&] {
        return wimlib_extract_image(wim_.get(), static_cast<int>(index), directory.c_str(), 0);
    });
}

std::optional<SavedFile> WimFile::Find(unsigned index, const std::string& path) const
{
    SavedFile file;
    const auto keep = [](const wimlib_dir_entry* entry, void* context) {
        auto& found = *static_cast<SavedFile*>(context);
        const auto& hash = entry->streams[0].resource.sha1_hash;
        found.modified = Nanoseconds(entry->last_write_time);
        if (std::any_of(std::begin(hash), std::end(hash), [](auto byte) { return byte != 0; }))
            found.hash.assign(reinterpret_cast<const char*>(hash), sizeof hash);
        return 0;
    };
    bool missing = false;
    Check("cannot look at " + path + " in " + path_, [&] {
        const int error = wimlib_iterate_dir_tree(wim_.get(), static_cast<int>(index), path.c_str(),
                                                  0, keep, &file);
        missing = error == WIMLIB_ERR_PATH_DOES_NOT_EXIST || error == WIMLIB_ERR_NOTDIR;
        return missing ? 0 : error;
    });
    return missing ? std::nullopt : std::optional(file);
}

void WimFile::Apply(unsigned index, const std::string& directory, const TreeChanges& changes)
{
    std::vector<std::string> sources;
    sources.reserve(changes.added.size());
    std::vector<wimlib_update_command> commands;
    for (const std::string& path : changes.removed) {
        wimlib_update_command& command = commands.emplace_back();
        command = {};
        command.op = WIMLIB_UPDATE_OP_DELETE;
        command.delete_.wim_path = const_cast<char*>(path.c_str());
        command.delete_.delete_flags = WIMLIB_DELETE_FLAG_FORCE | WIMLIB_DELETE_FLAG_RECURSIVE;
    }
    for (const std::string& path : changes.added) {
        sources.push_back(directory + path);
        wimlib_update_command& command = commands.emplace_back();
        command = {};
        command.op = WIMLIB_UPDATE_OP_ADD;
        command.add.fs_source_path = const_cast<char*>(sources.back().c_str());
        command.add.wim_target_path = const_cast<char*>(path.c_str());
        // A file that an image cannot hold is an error, not left out in silence.
        command.add.add_flags = WIMLIB_ADD_FLAG_NORPFIX | WIMLIB_ADD_FLAG_NO_UNSUPPORTED_EXCLUDE;
    }
    Check("cannot bring the changes into " + path_, [&] {
        return wimlib_update_image(wim_.get(), static_cast<int>(index), commands.data(),
                                   commands.size(), 0);
    });
}

void WimFile::Save(const WriteOptions& options)
{
    int flags = 0;
    if (options.integrity)
        flags |= WIMLIB_WRITE_FLAG_CHECK_INTEGRITY;
    if (options.rebuild)
        flags |= WIMLIB_WRITE_FLAG_REBUILD;
    Check("cannot write " + path_, [&] { return wimlib_overwrite(wim_.get(), flags, 0); });
}

void CommitShownImage(const std::string& directory, const WriteOptions& options)
{
    int flags = WIMLIB_UNMOUNT_FLAG_COMMIT;
    if (options.integrity)
        flags |= WIMLIB_UNMOUNT_FLAG_CHECK_INTEGRITY;
    if (options.rebuild)
        flags |= WIMLIB_UNMOUNT_FLAG_REBUILD;
    Check("cannot save the image", [&] { return wimlib_unmount_image(directory.c_str(), flags); });
}

std::string HashOf(const std::string& bytes)
{
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_Digest(bytes.data(), bytes.size(), hash, &length, EVP_sha1(), nullptr);
    return std::string(reinterpret_cast<const char*>(hash), length);
}

std::string HashOfFile(const std::string& path)
{
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    if (!file)
        throw SystemError("cannot open " + path);
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> digest(EVP_MD_CTX_new(),
                                                                    EVP_MD_CTX_free);
    EVP_DigestInit_ex(digest.get(), EVP_sha1(), nullptr);
    char block[65536];
    for (;;) {
        const ssize_t count = read(file.Get(), block, sizeof block);
        if (count < 0)
            throw SystemError("cannot read " + path);
        if (count == 0)
            break;
        EVP_DigestUpdate(digest.get(), block, static_cast<std::size_t>(count));
    }
    unsigned char hash[EVP_MAX_MD_SIZE];
    unsigned length = 0;
    EVP_DigestFinal_ex(digest.get(), hash, &length);
    return std::string(reinterpret_cast<const char*>(hash), length);
}

} // namespace kestro::servicing
