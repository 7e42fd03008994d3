#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

namespace halvtiv::exporters {

/// The file that an export makes: it is written under a name of its own beside the final one, whose earlier
/// file stays until `Commit` puts the new one in its place. Without `Commit` nothing is left behind. Raises
/// the run-time errors of files.
class TargetFile {
public:
    /// Makes the file, empty. A name that stands for no regular file, such as that of a pipe, or for one that
    /// is open already, such as standard output, is written straight.
    explicit TargetFile(std::string_view fileName);
    ~TargetFile();
    TargetFile(const TargetFile&) = delete;
    TargetFile& operator=(const TargetFile&) = delete;

    /// What to write until `Commit`.
    const std::filesystem::path& Path() const { return written_; }
    /// Where the file stands after `Commit`.
    const std::filesystem::path& Target() const { return target_; }
    /// The name that the caller knows, for messages.
    const std::string& Name() const { return name_; }
    bool IsStraight() const { return written_ == target_; }
    void Commit();
    /// `Commit` and the look before it, for a file that must not replace one which has come to stand there
    /// meanwhile: both raise 75 then.
    void CommitAsNew();
    void RequireNew() const;

private:
    std::string name_;
    std::filesystem::path target_;
    std::filesystem::path written_;
    bool committed_ = false;
};

/// A target that is written from its start to its end.
class FileWriter {
public:
    explicit FileWriter(std::string_view fileName);

    /// Room for `count` bytes: write there, then `Advance` to the end of what was written.
    char* Reserve(std::size_t count) {
        if (capacity_ - used_ < count) MakeRoom(count);
        return buffer_.get() + used_;
    }
    void Advance(const char* end) { used_ = static_cast<std::size_t>(end - buffer_.get()); }
    void Append(std::string_view text);
    void Append(char character) {
        char* const room = Reserve(1);
        *room = character;
        Advance(room + 1);
    }
    void Commit();

private:
    struct CloseFile {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    void MakeRoom(std::size_t count);
    void Flush();

    TargetFile target_;
    std::unique_ptr<std::FILE, CloseFile> file_;
    std::unique_ptr<char[]> buffer_;
    std::size_t capacity_;
    std::size_t used_ = 0;
};

}  // namespace halvtiv::exporters
