#pragma once

#include "KorvaneCore/platform/Async.hpp"

#include <boost/asio/steady_timer.hpp>

#include <map>
#include <memory>
#include <string>

namespace Korvane {

/// Lets one coroutine at a time do what goes by a name. All of them run on one strand, and this outlives
/// their turns.
class Turns {
public:
    /// Lasts as long as it lives.
    class Turn {
    public:
        Turn(Turns& turns, std::string name) : turns_(turns), name_(std::move(name)) {}

        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

        ~Turn() { turns_.end(name_); }

    private:
        Turns& turns_;
        std::string name_;
    };

    /// Waits for the end of another's turn. Throws boost::system::system_error (operation_aborted) when the
    /// coroutine is cancelled meanwhile.
    asio::awaitable<std::unique_ptr<Turn>> take(std::string name);

private:
    void end(const std::string& name);

    std::map<std::string, std::shared_ptr<asio::steady_timer>> taken_; ///< cancelled as the turn ends
};

} // namespace Korvane
