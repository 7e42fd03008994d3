#include "output.hpp"

#include <halvtiv/error_info.hpp>

#include "command_error.hpp"
#include "platform/files.hpp"
#include "platform/keywords.hpp"
#include "platform/streams.hpp"

namespace halvtiv::cli {
namespace {

constexpr std::size_t kBlockSize = 64 * 1024;

}  // namespace

Output::Output(const std::optional<std::string>& path) {
    pending_.reserve(kBlockSize);
    if (!path) return;
    if (platform::FolderExists(*path)) {
        throw CommandError(ExitStatus::NotRun,
                           "Cannot write " + platform::Shown(*path) + ": it is a folder.");
    }
    try {
        file_ = std::make_unique<OutputFile>(*path);
    } catch (const ErrorInfo& error) {
        throw CommandError(ExitStatus::NotRun,
                           "Cannot write " + platform::Shown(*path) + ": " + error.Description);
    }
}

void Output::Write(std::string_view bytes) {
    if (pending_.size() + bytes.size() > kBlockSize) Flush();
    if (bytes.size() >= kBlockSize) {
        WriteThrough(bytes);
    } else {
        pending_.append(bytes);
    }
}

void Output::Write(char character) {
    Write(std::string_view(&character, 1));
}

void Output::Repeat(char character, std::size_t count) {
    while (count > 0) {
        if (pending_.size() == kBlockSize) Flush();
        const std::size_t step = std::min(count, kBlockSize - pending_.size());
        pending_.append(step, character);
        count -= step;
    }
}

void Output::Finish() {
    Flush();
    if (!file_) return;
    try {
        file_->Commit();
    } catch (const ErrorInfo& error) {
        throw CommandError(ExitStatus::Failed, error.Description);
    }
}

void Output::WriteThrough(std::string_view bytes) {
    try {
        if (file_) {
            file_->Write(bytes);
        } else if (!platform::WriteStandardOutput(bytes)) {
            throw BrokenPipe{};
        }
    } catch (const ErrorInfo& error) {
        throw CommandError(ExitStatus::Failed, error.Description);
    }
}

void Output::Flush() {
    WriteThrough(pending_);
    pending_.clear();
}

}  // namespace halvtiv::cli
