#include "KorvaneCore/network/NetworkCost.hpp"

#include "KorvaneCore/platform/Log.hpp"

#include <gio/gio.h>

#include <memory>
#include <optional>
#include <thread>
#include <utility>

namespace Korvane {

namespace {

constexpr auto* managerName = "org.freedesktop.NetworkManager";
constexpr auto* managerPath = "/org/freedesktop/NetworkManager";
constexpr auto* property = "Metered";

struct Release {
    void operator()(GMainContext* context) const noexcept { g_main_context_unref(context); }

    void operator()(GMainLoop* loop) const noexcept { g_main_loop_unref(loop); }

    void operator()(GDBusConnection* connection) const noexcept { g_object_unref(connection); }

    void operator()(GDBusProxy* proxy) const noexcept { g_object_unref(proxy); }

    void operator()(GCancellable* cancellable) const noexcept { g_object_unref(cancellable); }

    void operator()(GVariant* variant) const noexcept { g_variant_unref(variant); }

    void operator()(GError* error) const noexcept { g_error_free(error); }
};
template <class T>
using Owned = std::unique_ptr<T, Release>;

/// The values of the manager's property; the guesses are made from the kind of connection.
enum class Answer : guint32 { unknown = 0, yes = 1, no = 2, guessedYes = 3, guessedNo = 4 };

bool isMetered(GDBusProxy* manager) {
    const Owned<GVariant> value(g_dbus_proxy_get_cached_property(manager, property));
    if (!value || g_variant_is_of_type(value.get(), G_VARIANT_TYPE_UINT32) == 0)
        return false;
    const auto answer = Answer{g_variant_get_uint32(value.get())};
    return answer == Answer::yes || answer == Answer::guessedYes;
}

} // namespace

class NetworkCost::Watch {
public:
    explicit Watch(std::function<void(bool)> handler) : handler_(std::move(handler)) {
        thread_ = std::thread([this] { run(); });
    }

    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

    ~Watch() {
        g_cancellable_cancel(cancelled_.get());
        // On the loop's own thread: quitting a loop that does not run yet would be lost.
        g_main_context_invoke(context_.get(), quit, loop_.get());
        thread_.join();
    }

private:
    void run() {
        g_main_context_push_thread_default(context_.get());
        auto manager = connect();
        tell(manager && isMetered(manager.get()));
        // The second signal: the manager came or went.
        if (manager) {
            g_signal_connect_swapped(manager.get(), "g-properties-changed", G_CALLBACK(changed), this);
            g_signal_connect_swapped(manager.get(), "notify::g-name-owner", G_CALLBACK(changed), this);
            manager_ = manager.get();
            look();
        }
        g_main_loop_run(loop_.get());
        if (manager)
            g_signal_handlers_disconnect_by_data(manager.get(), this);
        manager.reset();
        while (g_main_context_iteration(context_.get(), FALSE) != 0) {
            // What the proxy left behind is released from the loop.
        }
        g_main_context_pop_thread_default(context_.get());
    }

    Owned<GDBusProxy> connect() {
        GError* error = nullptr;
        Owned<GDBusProxy> manager;
        const Owned<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SYSTEM, cancelled_.get(), &error));
        if (bus) {
            g_dbus_connection_set_exit_on_close(bus.get(),
                                                FALSE); // a lost bus is no reason to end the process
            manager.reset(g_dbus_proxy_new_sync(bus.get(), G_DBUS_PROXY_FLAGS_DO_NOT_AUTO_START, nullptr,
                                                managerName, managerPath, managerName, cancelled_.get(),
                                                &error));
        }
        const Owned<GError> failure(error);
        if (failure)
            Log::info("network", failure->message);
        return manager;
    }

    static void changed(Watch* self) { self->look(); }

    void look() { tell(isMetered(manager_)); }

    void tell(bool metered) {
        if (std::exchange(told_, metered) != metered)
            handler_(metered);
    }

    static gboolean quit(gpointer loop) {
        g_main_loop_quit(static_cast<GMainLoop*>(loop));
        return G_SOURCE_REMOVE;
    }

    std::function<void(bool)> handler_;
    Owned<GMainContext> context_{g_main_context_new()};
    Owned<GMainLoop> loop_{g_main_loop_new(context_.get(), FALSE)};
    Owned<GCancellable> cancelled_{g_cancellable_new()};
    GDBusProxy* manager_ = nullptr;
    std::optional<bool> told_;
    std::thread thread_;
};

NetworkCost::NetworkCost(std::function<void(bool isMetered)> handler)
    : watch_(std::make_unique<Watch>(std::move(handler))) {}

NetworkCost::~NetworkCost() = default;

} // namespace Korvane
