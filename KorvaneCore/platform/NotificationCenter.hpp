#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace Korvane {

/// Posts without payload between processes that share a folder. A post reaches every observer of the name in
/// every process, the posting one included. Posts that follow each other closely may arrive as one; none is
/// lost whole. Nothing is kept for observers that come later. Callable from any thread.
class NotificationCenter {
public:
    /// The folder is created when the first post or observer needs it.
    explicit NotificationCenter(std::filesystem::path folder);

    /// `name` is one path component, such as "app.korvane.statusChanged". Throws FileError, and
    /// std::invalid_argument for a name that is none.
    void post(std::string_view name);

    class Observation;

    /// Calls `handler` on a thread of this observation after each post, and once when posts may have been
    /// missed (the folder was replaced, or the kernel's queue ran over). The handler must not throw. Posts
    /// made after observe() has returned are seen. Throws FileError.
    [[nodiscard]] Observation observe(std::string_view name, std::function<void()> handler);

private:
    std::filesystem::path folder_;
};

/// Ends with its owner: once destroyed, the handler neither runs nor will. Must not be destroyed by the
/// handler.
class NotificationCenter::Observation {
public:
    Observation(Observation&&) noexcept;
    Observation& operator=(Observation&&) noexcept;
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;
    ~Observation();

private:
    friend class NotificationCenter;
    class Watch;
    explicit Observation(std::unique_ptr<Watch> watch);

    std::unique_ptr<Watch> watch_;
};

} // namespace Korvane
