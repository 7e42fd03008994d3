#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <halvtiv/export.hpp>

namespace halvtiv {

/// A file that appears under its name only when it is complete, for exporters and other code that writes
/// files.
///
/// The bytes go into a locked temporary file in the same folder, readable by its owner alone. `Commit` sets
/// the permissions (those of the replaced file, or the default for a new file) and renames the temporary file
/// to the target. The earlier file is unchanged until the rename. Without `Commit` nothing is left behind. A
/// killed process leaves its temporary file (".NAME.1.tmp"); an `OutputFile` of the same name removes it once
/// it is a day old.
///
/// What a symbolic link leads to is replaced, not the link. In a sticky world-writable folder, a symbolic
/// link is followed only if its owner is the user or the folder's owner. A pipe, a device and a file that
/// this process has open already ("/dev/stdout", "/dev/fd/3") are written directly, without a temporary file;
/// an open file is appended to.
///
/// Used by one thread at a time. Failures raise `ErrorInfo` with run-time error 53, 57, 61, 70, 75 or 76. The
/// message names the path. After a failure, no further write is possible.
class HALVTIV_API OutputFile {
public:
    /// Makes the temporary file. Each "\" in the path means the system's own separator.
    explicit OutputFile(std::string_view path);
    /// Removes the temporary file unless it has been committed.
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    /// Appends bytes, which may stay in a buffer until `Commit`.
    void Write(std::string_view bytes);
    /// Writes what is left in the buffer and puts the file under its name. Raises 75 if the temporary file
    /// has been replaced.
    void Commit();
    /// The same, but raises 75 if a file of that name has been created in the meantime.
    void CommitAsNew();

    /// The path as the caller gave it, for messages.
    const std::string& Path() const noexcept;
    /// Where the complete file stands: at the end of a chain of links.
    const std::string& TargetPath() const noexcept;
    /// The temporary file, for a library that writes files by their names; "" where the target is written
    /// directly.
    const std::string& TemporaryPath() const noexcept;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvtiv
