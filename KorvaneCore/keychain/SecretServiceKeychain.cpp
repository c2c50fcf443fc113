#include "KorvaneCore/keychain/SecretServiceKeychain.hpp"

#include "KorvaneCore/config/KRIdentifiers.hpp"

#include <libsecret/secret.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>

namespace Korvane {

namespace {

constexpr std::chrono::seconds patience{20};

struct Unreference {
    void operator()(void* object) const noexcept { g_object_unref(object); }

    void operator()(GHashTable* table) const noexcept { g_hash_table_unref(table); }

    void operator()(GVariant* variant) const noexcept { g_variant_unref(variant); }

    void operator()(GError* error) const noexcept { g_error_free(error); }

    void operator()(SecretValue* value) const noexcept { secret_value_unref(value); }
};
template <class T>
using Owned = std::unique_ptr<T, Unreference>;

const SecretSchema& schema() {
    static const auto made = [] {
        SecretSchema description{};
        description.name = "app.korvane.Item";
        description.flags = SECRET_SCHEMA_NONE;
        description.attributes[0] = {"service", SECRET_SCHEMA_ATTRIBUTE_STRING};
        description.attributes[1] = {"account", SECRET_SCHEMA_ATTRIBUTE_STRING};
        description.attributes[2] = {"group", SECRET_SCHEMA_ATTRIBUTE_STRING};
        description.attributes[3] = {"container", SECRET_SCHEMA_ATTRIBUTE_STRING};
        return description;
    }();
    return made;
}

/// One call to the service: cancelled when patience ends.
class Call {
public:
    [[nodiscard]] GCancellable* cancellable() const noexcept { return cancellable_.get(); }

    GError** error() noexcept { return &error_; }

    void check() {
        const Owned<GError> failure(std::exchange(error_, nullptr));
        if (failure)
            throw KeychainError(std::string("The keyring did not answer: ") + failure->message);
    }

private:
    Owned<GCancellable> cancellable_{g_cancellable_new()};
    GError* error_ = nullptr;
    std::jthread guard_{[cancellable = cancellable_.get()](const std::stop_token& stop) {
        std::mutex mutex;
        std::condition_variable_any ended;
        std::unique_lock lock(mutex);
        ended.wait_for(lock, stop, patience, [] { return false; });
        if (!stop.stop_requested())
            g_cancellable_cancel(cancellable);
    }};
};

Owned<GHashTable> attributes(std::string_view account, const std::string& group,
                             const std::string& container) {
    return Owned<GHashTable>(secret_attributes_build(
        &schema(), "service", std::string(KRIdentifiers::keychainService).c_str(), "account",
        std::string(account).c_str(), "group", group.c_str(), "container", container.c_str(), nullptr));
}

} // namespace

SecretServiceKeychain::SecretServiceKeychain(std::string accessGroup, std::string container)
    : accessGroup_(std::move(accessGroup)), container_(std::move(container)) {}

bool SecretServiceKeychain::isOffered() {
    const Owned<GDBusConnection> bus(g_bus_get_sync(G_BUS_TYPE_SESSION, nullptr, nullptr));
    if (!bus)
        return false;
    const auto lists = [&](const char* method) {
        constexpr int patienceInMilliseconds = 2000;
        const Owned<GVariant> answer(
            g_dbus_connection_call_sync(bus.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                        "org.freedesktop.DBus", method, nullptr, G_VARIANT_TYPE("(as)"),
                                        G_DBUS_CALL_FLAGS_NONE, patienceInMilliseconds, nullptr, nullptr));
        if (!answer)
            return false;
        const Owned<GVariant> names(g_variant_get_child_value(answer.get(), 0));
        const std::unique_ptr<const char*, decltype(&g_free)> list(g_variant_get_strv(names.get(), nullptr),
                                                                   g_free);
        return g_strv_contains(list.get(), "org.freedesktop.secrets") != 0;
    };
    return lists("ListNames") || lists("ListActivatableNames");
}

std::optional<KRCrypto::SecretBytes> SecretServiceKeychain::read(Key key) {
    Call call;
    const auto where = attributes(name(key), accessGroup_, container_);
    const Owned<SecretValue> value(
        secret_password_lookupv_binary_sync(&schema(), where.get(), call.cancellable(), call.error()));
    call.check();
    if (!value)
        return std::nullopt;
    gsize length = 0;
    const auto* bytes = secret_value_get(value.get(), &length);
    return KRCrypto::SecretBytes::copyOf(std::string_view(bytes, length));
}

void SecretServiceKeychain::write(const std::vector<Item>& items) {
    for (const auto& [key, secret] : items) {
        Call call;
        const auto where = attributes(name(key), accessGroup_, container_);
        const auto text = secret.text();
        const Owned<SecretValue> value(secret_value_new(text.data() == nullptr ? "" : text.data(),
                                                        static_cast<gssize>(text.size()),
                                                        "application/octet-stream"));
        const auto label = "Korvane: " + std::string(name(key));
        secret_password_storev_binary_sync(&schema(), where.get(), SECRET_COLLECTION_DEFAULT, label.c_str(),
                                           value.get(), call.cancellable(), call.error());
        call.check();
    }
}

void SecretServiceKeychain::remove(const std::vector<Key>& keys) {
    for (const auto key : keys) {
        Call call;
        const auto where = attributes(name(key), accessGroup_, container_);
        secret_password_clearv_sync(&schema(), where.get(), call.cancellable(), call.error());
        call.check();
    }
}

} // namespace Korvane
