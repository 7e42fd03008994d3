#include "ado/value_file.hpp"

#include <utility>
#include <vector>

#include <halvtiv/output_file.hpp>

#include "ado/errors.hpp"
#include "ado/spooled_bytes.hpp"
#include "platform/files.hpp"

namespace halvtiv::ado {
namespace {

// The memory in use stays the same however long the value is; a database that gives less at a time does so.
constexpr std::size_t kPieceSize = std::size_t{64} * 1024;

class FileSource final : public ByteSource {
public:
    FileSource(std::unique_ptr<platform::InputFile> file, std::int64_t size, CopyProgress progress)
        : file_(std::move(file)), size_(size), progress_(std::move(progress)) {}

    std::int64_t Size() override { return size_; }
    void Read(std::int64_t offset, std::span<std::uint8_t> piece) override {
        file_->Read(static_cast<std::uint64_t>(offset), reinterpret_cast<char*>(piece.data()), piece.size());
        if (progress_) progress_(offset + static_cast<std::int64_t>(piece.size()), size_);
    }

private:
    std::unique_ptr<platform::InputFile> file_;
    std::int64_t size_;
    CopyProgress progress_;
};

}  // namespace

void CopyValueToFile(RowSource& row, std::int32_t column, std::string_view path,
                     const CopyProgress& progress) {
    const std::int64_t size = row.Size(column);
    OutputFile file(path);
    std::vector<std::uint8_t> piece(size > 0 ? kPieceSize : 0);
    for (std::int64_t written = 0; written < size;) {
        const std::size_t count = row.Read(column, written, piece);
        if (count == 0) RaiseAdoError(AdoError::Unspecified);  // never half a value
        file.Write({reinterpret_cast<const char*>(piece.data()), count});
        written += static_cast<std::int64_t>(count);
        if (progress) progress(written, size);
    }
    file.Commit();
}

std::shared_ptr<ByteSource> OpenFileAsValue(std::string_view path, CopyProgress progress) {
    auto file = std::make_unique<platform::InputFile>(path);
    if (const auto size = file->Size()) {
        return std::make_shared<FileSource>(std::move(file), static_cast<std::int64_t>(*size),
                                            std::move(progress));
    }
    auto spooled = std::make_shared<SpooledBytes>();
    std::vector<std::uint8_t> piece(kPieceSize);
    while (const auto count = file->ReadNext(reinterpret_cast<char*>(piece.data()), piece.size())) {
        spooled->Append(std::span(piece).first(count));
    }
    return spooled;
}

}  // namespace halvtiv::ado
