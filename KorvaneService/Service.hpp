#pragma once

#include "KorvaneService/Faults.hpp"
#include "KorvaneService/HTTPServer.hpp"
#include "KorvaneService/Router.hpp"
#include "KorvaneService/ServiceState.hpp"

#include <string>

namespace Korvane {

/// The storage service on this computer: the whole API over HTTP on 127.0.0.1, its state in one folder. It
/// listens from construction to destruction, on threads of its own; several may run in one process, each with
/// its own folder.
class Service {
public:
    /// Throws FileError, SQLiteError, or boost::system::system_error when the port is taken.
    explicit Service(ServiceSettings settings);

    /// What clients are configured with: "http://127.0.0.1:8787".
    [[nodiscard]] const std::string& baseURL() const noexcept { return state_.baseURL(); }

    [[nodiscard]] std::uint16_t port() const { return server_.port(); }

    /// What goes wrong with coming calls, for tests.
    [[nodiscard]] Faults& faults() noexcept { return faults_; }

private:
    Reply answer(const Request& request);

    ServiceState state_;
    Router router_;
    Faults faults_;
    HTTPServer server_;
};

} // namespace Korvane
