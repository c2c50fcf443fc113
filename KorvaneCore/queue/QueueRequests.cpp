#include "KorvaneCore/queue/QueueRequests.hpp"

#include "KorvaneCore/config/KRIdentifiers.hpp"
#include "KorvaneCore/storage/LocalIndex.hpp"

#include <boost/uuid/random_generator.hpp>
#include <boost/uuid/uuid_io.hpp>

#include <map>
#include <optional>
#include <utility>

namespace Korvane {

namespace {

// Keys in the index.
constexpr auto* pausedKey = "queue.paused";
constexpr auto* meteredKey = "queue.metered";
constexpr auto* latestKey = "queue.latestRequest";
const std::string cancelFolder = "queue.cancel";

std::string cancelKey(const std::string& id) {
    return cancelFolder + "/" + id;
}

} // namespace

QueueRequests::QueueRequests(std::shared_ptr<LocalIndex> index, NotificationCenter notifications)
    : index_(std::move(index)), notifications_(std::move(notifications)) {}

void QueueRequests::setPaused(bool paused) {
    index_->setValue(paused ? std::optional<std::string>("1") : std::nullopt, pausedKey);
    announce();
}

void QueueRequests::setMetered(Metered metered) {
    std::optional<std::string> value;
    if (metered != Metered::automatic)
        value = metered == Metered::yes ? "yes" : "no";
    index_->setValue(value, meteredKey);
    announce();
}

void QueueRequests::retryFailed() {
    index_->retryFailedTransfers();
    announce();
}

void QueueRequests::nudge() {
    index_->makeTransfersDue();
    announce();
}

void QueueRequests::cancel(const std::vector<std::string>& ids) {
    std::map<std::string, std::optional<std::string>> requests;
    for (const auto& id : ids)
        requests.emplace(cancelKey(id), "1");
    index_->setValues(requests);
    announce();
}

bool QueueRequests::isPaused() {
    return index_->value(pausedKey).has_value();
}

QueueRequests::Metered QueueRequests::metered() {
    const auto value = index_->value(meteredKey);
    if (!value)
        return Metered::automatic;
    return *value == "yes" ? Metered::yes : Metered::no;
}

std::set<std::string> QueueRequests::cancelled() {
    std::set<std::string> ids;
    for (const auto& [key, value] : index_->values(cancelFolder))
        ids.insert(key.substr(cancelFolder.size() + 1));
    return ids;
}

void QueueRequests::forgetCancelled(const std::string& id) {
    index_->setValue(std::nullopt, cancelKey(id));
}

std::string QueueRequests::latest() {
    return index_->value(latestKey).value_or("");
}

void QueueRequests::announce() {
    // Last, so that who sees it sees what was asked. A value of its own tells it from the queue's own posts.
    index_->setValue(boost::uuids::to_string(boost::uuids::random_generator()()), latestKey);
    notifications_.post(KRIdentifiers::queueChangedNotification);
}

} // namespace Korvane
