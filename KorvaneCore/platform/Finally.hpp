#pragma once

#include <utility>

namespace Korvane {

/// Does something on leaving the scope, however it is left. `work` must not throw.
template <class Work>
class Finally {
public:
    explicit Finally(Work work) : work_(std::move(work)) {}

    Finally(const Finally&) = delete;
    Finally& operator=(const Finally&) = delete;

    ~Finally() { work_(); }

private:
    Work work_;
};

} // namespace Korvane
