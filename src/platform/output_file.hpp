#pragma once

#include <memory>
#include <string_view>

namespace halvtiv::platform {

/// A file that appears under its name only when it is complete: it is written beside it under another name,
/// and an earlier file of that name stays until `Commit` puts the new one in its place. Without `Commit`
/// nothing is left behind.
class OutputFile {
public:
    explicit OutputFile(std::string_view path);
    ~OutputFile();
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void Write(std::string_view bytes);
    void Commit();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace halvtiv::platform
