#pragma once

#include <halvtiv/output_file.hpp>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace halvtiv::cli {

/// Where the command's outcome goes: standard output, or a file that appears under its name only when
/// `Finish` was called. Collects small pieces and writes in blocks.
class Output {
public:
    /// No path: standard output. Raises `CommandError` (not run) when the file cannot be made, so that it is
    /// known before anything runs.
    explicit Output(const std::optional<std::string>& path);

    /// Raises `BrokenPipe`, or `CommandError` (failed).
    void Write(std::string_view bytes);
    void Write(char character);
    /// The same character again and again.
    void Repeat(char character, std::size_t count);
    /// Writes what is left and puts the file in its place. Raises as `Write` does.
    void Finish();

private:
    void WriteThrough(std::string_view bytes);
    void Flush();

    std::string pending_;
    std::unique_ptr<OutputFile> file_;  ///< null: standard output
};

}  // namespace halvtiv::cli
