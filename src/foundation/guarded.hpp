#pragma once

#include <type_traits>
#include <utility>

#include "foundation/err_object.hpp"

namespace halvtiv {

/// The one way in which an operation keeps its failures to itself: the last error is cleared, the body runs,
/// and whatever it raises is recorded; then the clean-up runs, its own errors ignored, and `failure` is the
/// answer.
template <typename Body, typename CleanUp>
std::invoke_result_t<Body&> Guarded(clsZorbErrObject& errors, std::invoke_result_t<Body&> failure,
                                    Body&& body, CleanUp&& cleanUp) noexcept {
    errors.Clear();
    try {
        return body();
    } catch (...) {
        errors.SetError(nullptr);
    }
    try {
        cleanUp();
    } catch (...) {  // NOLINT(bugprone-empty-catch): the first error is the one that counts
    }
    return failure;
}

template <typename Body>
std::invoke_result_t<Body&> Guarded(clsZorbErrObject& errors, std::invoke_result_t<Body&> failure,
                                    Body&& body) noexcept {
    return Guarded(errors, std::move(failure), std::forward<Body>(body), [] {});
}

/// The usual case of an operation that answers whether it succeeded: its body answers nothing.
template <typename Body>
bool Succeeds(clsZorbErrObject& errors, Body&& body) noexcept {
    return Guarded(errors, false, [&body] {
        body();
        return true;
    });
}

template <typename Body, typename CleanUp>
bool Succeeds(clsZorbErrObject& errors, Body&& body, CleanUp&& cleanUp) noexcept {
    return Guarded(
        errors, false,
        [&body] {
            body();
            return true;
        },
        std::forward<CleanUp>(cleanUp));
}

}  // namespace halvtiv
