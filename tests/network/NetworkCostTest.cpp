// Following the network's cost on a bus of the test's own, with a manager that says what the test wants.
#include "KorvaneCore/network/NetworkCost.hpp"

#include "tests/support/TemporaryFolder.hpp"

#include <gio/gio.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>

#if __has_feature(thread_sanitizer)
// GLib is not built for ThreadSanitizer, which sees its memory but not its locks.
extern "C" const char* __tsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
    return "called_from_lib:libglib-2.0.so\ncalled_from_lib:libgio-2.0.so\ncalled_from_lib:libgobject-2.0."
           "so\n";
}
#endif

namespace Korvane::Testing {
namespace {

/// What the handler was told, in order.
class Told {
public:
    void tell(bool metered) {
        const std::lock_guard lock(mutex_);
        values_.push_back(metered);
        more_.notify_one();
    }

    bool next() {
        std::unique_lock lock(mutex_);
        if (!more_.wait_for(lock, std::chrono::seconds(20), [&] { return !values_.empty(); }))
            throw std::runtime_error("nothing was told");
        const bool value = values_.front();
        values_.pop_front();
        return value;
    }

private:
    std::mutex mutex_;
    std::condition_variable more_;
    std::deque<bool> values_;
};

/// A network manager with one property, on a connection of its own.
class Manager {
public:
    Manager(const char* address, guint32 metered) : metered_(metered) {
        thread_ = std::thread([this, address = std::string(address)] { run(address); });
        std::unique_lock lock(mutex_);
        ready_.wait(lock, [&] { return loop_ != nullptr; });
    }

    Manager(const Manager&) = delete;
    Manager& operator=(const Manager&) = delete;

    ~Manager() {
        g_main_loop_quit(loop_);
        thread_.join();
        g_main_loop_unref(loop_);
    }

    void say(guint32 metered) {
        metered_ = metered;
        GVariantBuilder changed;
        g_variant_builder_init(&changed, G_VARIANT_TYPE("a{sv}"));
        g_variant_builder_add(&changed, "{sv}", "Metered", g_variant_new_uint32(metered));
        g_dbus_connection_emit_signal(bus_, nullptr, path, "org.freedesktop.DBus.Properties",
                                      "PropertiesChanged",
                                      g_variant_new("(sa{sv}as)", name, &changed, nullptr), nullptr);
    }

private:
    static constexpr auto* name = "org.freedesktop.NetworkManager";
    static constexpr auto* path = "/org/freedesktop/NetworkManager";

    void run(const std::string& address) {
        auto* context = g_main_context_new();
        g_main_context_push_thread_default(context);
        auto* info = g_dbus_node_info_new_for_xml(
            "<node><interface name='org.freedesktop.NetworkManager'><property name='Metered' type='u' "
            "access='read'/></interface></node>",
            nullptr);
        bus_ = g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr);
        GDBusInterfaceVTable table{};
        table.get_property = [](GDBusConnection*, const char*, const char*, const char*, const char*,
                                GError**, gpointer self) {
            return g_variant_new_uint32(static_cast<Manager*>(self)->metered_);
        };
        g_dbus_connection_register_object(bus_, path, info->interfaces[0], &table, this, nullptr, nullptr);
        const auto owner = g_bus_own_name_on_connection(bus_, name, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr,
                                                        nullptr, nullptr, nullptr);
        auto* loop = g_main_loop_new(context, FALSE);
        {
            const std::lock_guard lock(mutex_);
            loop_ = loop;
            ready_.notify_one();
        }
        g_main_loop_run(loop);
        g_bus_unown_name(owner);
        g_dbus_connection_close_sync(bus_, nullptr, nullptr);
        g_object_unref(bus_);
        g_dbus_node_info_unref(info);
        g_main_context_pop_thread_default(context);
        g_main_context_unref(context);
    }

    std::atomic<guint32> metered_;
    GDBusConnection* bus_ = nullptr;
    std::mutex mutex_;
    std::condition_variable ready_;
    GMainLoop* loop_ = nullptr;
    std::thread thread_;
};

TEST(NetworkCost, WithoutABusNothingIsMetered) {
    const ScopedEnvironment address("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus");
    Told told;
    const NetworkCost cost([&](bool metered) { told.tell(metered); });
    EXPECT_FALSE(told.next());
}

TEST(NetworkCost, FollowsTheManagerAsItComesChangesAndGoes) {
    const std::unique_ptr<GTestDBus, decltype(&g_object_unref)> bus(g_test_dbus_new(G_TEST_DBUS_NONE),
                                                                    g_object_unref);
    g_test_dbus_up(bus.get());
    const char* address = g_test_dbus_get_bus_address(bus.get());
    {
        const ScopedEnvironment system("DBUS_SYSTEM_BUS_ADDRESS", address);
        Told told;
        const NetworkCost cost([&](bool metered) { told.tell(metered); });
        EXPECT_FALSE(told.next());
        {
            Manager manager(address, 1);
            EXPECT_TRUE(told.next());
            manager.say(2);
            EXPECT_FALSE(told.next());
            manager.say(3); // a guess
            EXPECT_TRUE(told.next());
            manager.say(1); // no change
            manager.say(4);
            EXPECT_FALSE(told.next());
            manager.say(1);
            EXPECT_TRUE(told.next());
        }
        EXPECT_FALSE(told.next());
    }
    g_test_dbus_stop(bus.get());
}

} // namespace
} // namespace Korvane::Testing
