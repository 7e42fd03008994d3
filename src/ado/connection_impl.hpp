#pragma once

#include <cstdint>
#include <memory>

#include <halvtiv/ado.hpp>

#include "ado/provider.hpp"

namespace halvtiv::ado {

struct Connection::Impl {
    /// The open session. Raises -2146824584 when there is none.
    Session& Require();

    bool IsOpen() const { return session && session->IsAlive(); }

    std::shared_ptr<Session> session;
    std::int32_t connectionTimeout = 15;
    std::int32_t commandTimeout = 30;
    /// Transactions that `BeginTrans` has begun and nothing has ended.
    std::int32_t level = 0;
    /// Whether level 1 is a savepoint in a transaction that the caller's own SQL has begun.
    bool outermostIsSavepoint = false;
};

}  // namespace halvtiv::ado
