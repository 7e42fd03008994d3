#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <halvtiv/export.hpp>
#include <halvtiv/function_call.hpp>

namespace halvtiv {

/// A request of several calls that succeed or fail together: a name, a key (GUID text) and the calls in the
/// order in which they run. Positions count from 1.
///
/// The calls belong to the transaction; the pointers given out are to the calls themselves, so that a change
/// through one is a change of the transaction, and stay good after it is gone.
///
/// Every member but the properties, `FunctionCount`, `FunctionName`, `FunctionGUID`, `Reset` and the two
/// error members clears the last error, lets no exception out and, when it fails, keeps the reason for
/// `GetLastError` and returns false or null. One object is used by one thread at a time.
class HALVTIV_API ZorbTransactionCall {
public:
    ZorbTransactionCall();
    ~ZorbTransactionCall();
    ZorbTransactionCall(const ZorbTransactionCall&) = delete;
    ZorbTransactionCall& operator=(const ZorbTransactionCall&) = delete;

    /// Replaces everything by what the XML text says, name and key trimmed of blanks: each "function" child
    /// of the root, whatever the root is called, is a call. "Failed to load Xml Transaction." A failure
    /// leaves the transaction empty.
    bool Parse(std::string_view sXmlTrans);
    /// Writes the transaction as XML text. A transaction or a call without a GUID gets one, once, and keeps
    /// it. When it fails, the argument is as it was.
    bool Save(std::string& xml);
    /// Empties name and GUID and removes all calls. Keeps the last error.
    void Reset();

    /// Raises the last error again; false when there is none.
    bool RaiseLastError() const;
    /// The last error as text with its number; "" when the last operation succeeded.
    std::string GetLastError() const;

    /// Number of calls.
    std::int32_t FunctionCount() const;

    /// Name of the transaction; its result carries it. Writing raises 5 for a text that XML cannot carry.
    std::string TransName() const;
    void TransName(std::string_view sTransName);
    /// Key of the transaction; its result carries it. Writing raises 5 as above.
    std::string TransGUID() const;
    void TransGUID(std::string_view sTransGUID);

    /// Name of the call at a position from 1 to `FunctionCount` - 1; "" for any other one, the last call's
    /// included: `GetFunction` reaches that one.
    std::string FunctionName(std::int32_t lIndex) const;
    /// Key of the call at a position, within the same bounds.
    std::string FunctionGUID(std::int32_t lIndex) const;

    /// The call at a position from 1 to `FunctionCount`; null, without an error, when there is none.
    ZorbFunctionCallPtr GetFunction(std::int32_t lIndex);
    /// The first call of that function name, ignoring case; null, without an error, when there is none.
    ZorbFunctionCallPtr GetFunctionByName(std::string_view name);
    /// The first call with that key, ignoring case; null, without an error, when there is none.
    ZorbFunctionCallPtr GetFunctionByGUID(std::string_view sGUID);

    /// Appends a call given as XML text and returns it. The reason why a text cannot be read is the call's.
    ZorbFunctionCallPtr AddFunctionXml(std::string_view sFuncCallXml);
    /// Appends a copy of a call and returns the copy. A call without a GUID gets one by this.
    ZorbFunctionCallPtr AddFunction(ZorbFunctionCall& cCall);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};
using ZorbTransactionCallPtr = std::shared_ptr<ZorbTransactionCall>;

}  // namespace halvtiv
