#pragma once

#include <sql.h>
#include <sqlext.h>
#include <sqlucode.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace halvtiv::ado {

/// Text as wide drivers take it: UTF-16, with a NUL behind it.
std::vector<SQLWCHAR> ToWide(std::string_view utf8);

/// Appends UTF-16 as UTF-8. A lone surrogate goes through as the three bytes it would be, which no reader of
/// UTF-8 takes for a character.
void AppendUtf8(std::string& utf8, std::span<const SQLWCHAR> wide);

/// Text that comes in pieces, which may part a character: `Append` holds back what is not complete.
class WideTextReader {
public:
    void Append(std::string& utf8, std::span<const SQLWCHAR> piece);
    /// What was held back goes out as it is.
    void Finish(std::string& utf8);

private:
    SQLWCHAR held_ = 0;  // the first half of a pair; 0: none
};

/// The bytes at the end of a piece that begin a character and do not end it.
std::size_t IncompleteTail(std::string_view utf8) noexcept;

}  // namespace halvtiv::ado
