#pragma once

#include <functional>
#include <future>
#include <thread>
#include <utility>

namespace halvtiv::ado {

/// Does in a thread of its own what a library may wait for without end. Whoever loses patience drops the
/// future and leaves the thread behind; the work must therefore own all that it touches.
template <typename Result>
std::future<Result> ThatMayBeLeftBehind(std::function<Result()> work) {
    std::packaged_task<Result()> task(std::move(work));
    auto result = task.get_future();
    std::thread(std::move(task)).detach();
    return result;
}

}  // namespace halvtiv::ado
