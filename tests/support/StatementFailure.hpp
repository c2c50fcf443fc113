#pragma once

namespace Korvane::Testing {

/// Makes statements fail: every connection opened while this lives asks it for leave while SQLite prepares a
/// statement, and it refuses once (SQLITE_AUTH). Counting up the number fails an operation at each of its
/// statements in turn. One at a time.
class StatementFailure {
public:
    StatementFailure();
    StatementFailure(const StatementFailure&) = delete;
    StatementFailure& operator=(const StatementFailure&) = delete;
    ~StatementFailure();

    /// Refuses the question that comes after `questions` more.
    void refuseAfter(int questions);

    /// Refuses nothing any more; whether it has refused since refuseAfter().
    bool disarm();
};

} // namespace Korvane::Testing
