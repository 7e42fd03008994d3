#pragma once

#include <sql.h>
#include <sqlext.h>

#include <utility>

#include "platform/run_time_error.hpp"

namespace halvtiv::ado {

/// A handle of the driver manager, freed with this object.
class OdbcHandle {
public:
    OdbcHandle() = default;
    /// Allocates a handle under its parent; raises run-time error 7 where there is no memory.
    OdbcHandle(SQLSMALLINT type, SQLHANDLE parent) : OdbcHandle(TryMake(type, parent)) {
        if (handle_ == nullptr) platform::RaiseRunTimeError(platform::RunTimeError::OutOfMemory);
    }
    /// No handle where none comes: its parent then tells why.
    static OdbcHandle TryMake(SQLSMALLINT type, SQLHANDLE parent) noexcept {
        OdbcHandle made;
        made.type_ = type;
        if (!SQL_SUCCEEDED(SQLAllocHandle(type, parent, &made.handle_))) made.handle_ = nullptr;
        return made;
    }
    ~OdbcHandle() { Free(); }
    OdbcHandle(OdbcHandle&& other) noexcept
        : type_(other.type_), handle_(std::exchange(other.handle_, nullptr)) {}
    OdbcHandle& operator=(OdbcHandle&& other) noexcept {
        if (this != &other) {
            Free();
            type_ = other.type_;
            handle_ = std::exchange(other.handle_, nullptr);
        }
        return *this;
    }

    SQLHANDLE Get() const noexcept { return handle_; }
    SQLSMALLINT Type() const noexcept { return type_; }
    explicit operator bool() const noexcept { return handle_ != nullptr; }
    void Free() noexcept {
        if (handle_ != nullptr) SQLFreeHandle(type_, std::exchange(handle_, nullptr));
    }

private:
    SQLSMALLINT type_ = 0;
    SQLHANDLE handle_ = nullptr;
};

}  // namespace halvtiv::ado
