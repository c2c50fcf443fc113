#include "KorvaneCore/http/CurlSession.hpp"

#include "KorvaneCore/http/Transfer.hpp"
#include "KorvaneCore/platform/HandOver.hpp"
#include "KorvaneCore/platform/Mutex.hpp"

#include <boost/asio/associated_cancellation_slot.hpp>
#include <boost/asio/associated_executor.hpp>
#include <boost/asio/error.hpp>
#include <boost/system/system_error.hpp>
#include <curl/curl.h>

#include <map>
#include <new>
#include <thread>
#include <utility>
#include <vector>

namespace Korvane {

namespace {

void startCurlOnce() {
    static const auto code = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (code != CURLE_OK)
        throw std::runtime_error(curl_easy_strerror(code));
}

} // namespace

/// The thread that runs every transfer. Others reach it through two lists and a wake-up.
class CurlSession::Loop {
public:
    explicit Loop(Options options) : options_(std::move(options)) {
        startCurlOnce();
        multi_.reset(curl_multi_init());
        if (!multi_)
            throw std::bad_alloc();
        thread_ = std::thread([this] { run(); });
    }

    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    ~Loop() {
        {
            const MutexLock lock(mutex_);
            stopping_ = true;
        }
        curl_multi_wakeup(multi_.get());
        thread_.join();
    }

    void add(std::shared_ptr<Transfer> transfer) {
        {
            const MutexLock lock(mutex_);
            added_.push_back(std::move(transfer));
        }
        curl_multi_wakeup(multi_.get());
    }

    void cancel(std::weak_ptr<Transfer> transfer) {
        {
            const MutexLock lock(mutex_);
            cancelled_.push_back(std::move(transfer));
        }
        curl_multi_wakeup(multi_.get());
    }

private:
    struct MultiDeleter {
        void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
    };

    void run() {
        constexpr int longestPoll = 60'000; // ms; libcurl's own deadlines and wake-ups end it sooner
        while (takeOrders()) {
            int running = 0;
            curl_multi_perform(multi_.get(), &running);
            finishDone();
            curl_multi_poll(multi_.get(), nullptr, 0, longestPoll, nullptr);
        }
        const auto closed =
            std::make_exception_ptr(HTTPError(HTTPError::Kind::connection, "the session was closed"));
        while (!running_.empty())
            remove(running_.begin()->first)->fail(closed);
    }

    /// What the other threads asked for since; false when the session ends.
    bool takeOrders() {
        std::vector<std::shared_ptr<Transfer>> added;
        std::vector<std::weak_ptr<Transfer>> cancelled;
        bool stopping = false;
        {
            const MutexLock lock(mutex_);
            added.swap(added_);
            cancelled.swap(cancelled_);
            stopping = stopping_;
        }
        for (auto& transfer : added)
            start(std::move(transfer));
        for (const auto& order : cancelled)
            if (const auto transfer = order.lock(); transfer && running_.contains(transfer->handle()))
                remove(transfer->handle())
                    ->fail(
                        std::make_exception_ptr(boost::system::system_error(asio::error::operation_aborted)));
        return !stopping;
    }

    void start(std::shared_ptr<Transfer> transfer) {
        try {
            transfer->prepare(freshHandle(), options_);
            running_.emplace(transfer->handle(), transfer);
            curl_multi_add_handle(multi_.get(), transfer->handle());
        } catch (const std::exception&) {
            running_.erase(transfer->handle());
            transfer->fail(std::current_exception());
        }
    }

    void finishDone() {
        int left = 0;
        while (const auto* message = curl_multi_info_read(multi_.get(), &left)) {
            if (message->msg != CURLMSG_DONE)
                continue;
            const auto code = message->data.result;
            const auto transfer = running_.at(message->easy_handle);
            transfer->finish(code); // reads the handle, so before it is taken away
            (void)remove(message->easy_handle);
        }
    }

    std::shared_ptr<Transfer> remove(CURL* handle) {
        constexpr std::size_t keptHandles = 16;
        curl_multi_remove_handle(multi_.get(), handle);
        auto transfer = std::move(running_.extract(handle).mapped());
        auto used = transfer->release();
        curl_easy_reset(used.get());
        if (idle_.size() < keptHandles)
            idle_.push_back(std::move(used));
        return transfer;
    }

    EasyHandle freshHandle() {
        if (idle_.empty()) {
            EasyHandle made(curl_easy_init());
            if (!made)
                throw std::bad_alloc();
            return made;
        }
        auto handle = std::move(idle_.back());
        idle_.pop_back();
        return handle;
    }

    const Options options_;
    std::unique_ptr<CURLM, MultiDeleter> multi_;
    std::vector<EasyHandle> idle_;
    std::map<CURL*, std::shared_ptr<Transfer>> running_;

    Mutex mutex_;
    std::vector<std::shared_ptr<Transfer>> added_ KR_GUARDED_BY(mutex_);
    std::vector<std::weak_ptr<Transfer>> cancelled_ KR_GUARDED_BY(mutex_);
    bool stopping_ KR_GUARDED_BY(mutex_) = false;

    std::thread thread_;
};

CurlSession::CurlSession() : CurlSession(Options()) {}

CurlSession::CurlSession(Options options) : loop_(std::make_shared<Loop>(std::move(options))) {}

CurlSession::~CurlSession() = default;

asio::awaitable<HTTPResponse> CurlSession::send(HTTPRequest request) {
    return asio::async_initiate<const asio::use_awaitable_t<>, void(std::exception_ptr, HTTPResponse)>(
        [](auto handler, const std::weak_ptr<Loop>& target, HTTPRequest toSend) {
            const auto loop = target.lock();
            auto slot = asio::get_associated_cancellation_slot(handler);
            // A std::function must be copyable, which no coroutine's handler is.
            auto home = asio::get_associated_executor(handler);
            auto waiting = std::make_shared<decltype(handler)>(std::move(handler));
            auto transfer = std::make_shared<Transfer>(
                std::move(toSend), [waiting = std::move(waiting), home = std::move(home)](
                                       std::exception_ptr error, HTTPResponse response) mutable {
                    handOver(std::move(home), [waiting = std::move(waiting), error = std::move(error),
                                               response = std::move(response)]() mutable {
                        (*waiting)(std::move(error), std::move(response));
                    });
                });
            if (slot.is_connected())
                slot.assign([target, order = std::weak_ptr(transfer)](asio::cancellation_type) {
                    if (const auto running = target.lock())
                        running->cancel(order);
                });
            loop->add(std::move(transfer));
        },
        asio::use_awaitable, std::weak_ptr(loop_), std::move(request));
}

} // namespace Korvane
