#include "target_file.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>

#include <halvtiv/data_types.hpp>

#include "errors.hpp"

namespace halvtiv::exporters {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;

fs::path FolderOf(const fs::path& file) {
    return file.has_parent_path() ? file.parent_path() : fs::path(".");
}

/// Opens and closes a file: whether it can be written, or made.
void TryOpen(const fs::path& path, const char* mode, const std::string& name) {
    errno = 0;
    std::FILE* const file = std::fopen(path.string().c_str(), mode);
    if (file == nullptr) RaiseFileError(errno, name);
    std::fclose(file);
}

fs::path TemporaryBeside(const fs::path& target) {
    constexpr std::size_t kLongest = 100;  // the name's part of it; the whole must stay below the usual limit
    std::string name = target.filename().string();
    if (name.size() > kLongest) name.clear();
    return FolderOf(target) / ("." + name + "." + CreateGUIDString(1) + ".tmp");
}

/// Whether a name leads to a file that is open already, such as redirected standard output: whoever opened it
/// would not see another file in its place.
bool LeadsToOpenFile(fs::path path) {
    constexpr int kMostLinks = 40;
    std::error_code error;
    for (int links = 0; links < kMostLinks; ++links) {
        if (fs::weakly_canonical(FolderOf(path), error).string().starts_with("/proc/")) return true;
        if (!fs::is_symlink(path, error)) return false;
        path = FolderOf(path) / fs::read_symlink(path, error);
    }
    return false;
}

/// Where a new file of that name has to be put: at the end of a chain of links.
fs::path EndOfLinks(fs::path path) {
    constexpr int kMostLinks = 40;
    std::error_code error;
    for (int links = 0; fs::is_symlink(path, error); ++links) {
        if (links == kMostLinks) RaiseFileError(ELOOP, path.string());
        path = FolderOf(path) / fs::read_symlink(path, error);
    }
    return path;
}

}  // namespace

TargetFile::TargetFile(std::string_view fileName) : name_(NativePath(fileName)) {
    if (name_.find('\0') != std::string::npos) RaiseFileError(EINVAL, {});
    std::error_code error;
    const fs::file_status earlier = fs::status(name_, error);
    if (fs::is_directory(earlier) || name_.ends_with('/')) RaiseFileError(EISDIR, name_);
    if (earlier.type() == fs::file_type::none) RaiseFileError(error.value(), name_);
    target_ = name_;
    const bool exists = fs::exists(earlier);
    if (exists && (!fs::is_regular_file(earlier) || LeadsToOpenFile(target_))) {
        written_ = target_;
        return;
    }
    if (exists) {
        // A file that may not be written is not to be replaced either.
        TryOpen(target_, "r+b", name_);
        target_ = fs::canonical(target_);  // what a link leads to is replaced, not the link
    } else {
        target_ = EndOfLinks(target_);
        if (name_.empty() || !fs::is_directory(FolderOf(target_), error)) RaiseFileError(ENOTDIR, name_);
    }
    // Nothing may fail once the temporary file is there: an object that is not complete removes nothing.
    written_ = TemporaryBeside(target_);
    TryOpen(written_, "wbx", name_);
    if (exists) fs::permissions(written_, earlier.permissions(), error);
}

TargetFile::~TargetFile() {
    if (committed_ || IsStraight()) return;
    std::error_code ignored;
    fs::remove(written_, ignored);
}

void TargetFile::Commit() {
    if (IsStraight()) return;
    std::error_code error;
    fs::rename(written_, target_, error);
    if (error) RaiseFileError(error.value(), name_);
    committed_ = true;
}

void TargetFile::RequireNew() const {
    std::error_code ignored;
    if (fs::exists(target_, ignored)) {
        Raise(ErrorNumber::PathAccess, "Somebody else has made the file meanwhile. (" + name_ + ")");
    }
}

void TargetFile::CommitAsNew() {
    std::error_code error;
    fs::create_hard_link(written_, target_, error);
    if (!error) return;
    RequireNew();
    Commit();  // not every file system has such links
}

FileWriter::FileWriter(std::string_view fileName)
    : target_(fileName),
      file_(std::fopen(target_.Path().string().c_str(), target_.IsStraight() ? "ab" : "wb")),
      buffer_(std::make_unique_for_overwrite<char[]>(kBufferSize)),
      capacity_(kBufferSize) {
    if (!file_) RaiseFileError(errno, target_.Name());
    std::setvbuf(file_.get(), nullptr, _IONBF, 0);  // there is a buffer here
}

void FileWriter::Flush() {
    if (used_ > 0 && std::fwrite(buffer_.get(), 1, used_, file_.get()) != used_) {
        RaiseFileError(errno, target_.Name());
    }
    used_ = 0;
}

void FileWriter::MakeRoom(std::size_t count) {
    Flush();
    if (count <= capacity_) return;
    buffer_ = std::make_unique_for_overwrite<char[]>(count);
    capacity_ = count;
}

void FileWriter::Append(std::string_view text) {
    while (!text.empty()) {
        const std::size_t count = std::min(text.size(), kBufferSize);
        char* const room = Reserve(count);
        std::memcpy(room, text.data(), count);
        Advance(room + count);
        text.remove_prefix(count);
    }
}

void FileWriter::Commit() {
    Flush();
    if (std::fclose(file_.release()) != 0) RaiseFileError(errno, target_.Name());
    target_.Commit();
}

}  // namespace halvtiv::exporters
