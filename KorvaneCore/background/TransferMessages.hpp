#pragma once

#include "KRCrypto/Bytes.hpp"
#include "KorvaneCore/json/KRJSON.hpp"

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What a background session's client and helper say to each other: JSON texts, each after its length (see
/// MessageChannel). In each message exactly one member is there. The client begins with `hello`.
namespace Korvane::TransferMessages {

/// Both sides must speak the same one.
inline constexpr std::int64_t version = 1;

struct Header {
    std::string name;
    std::string value;
};
BOOST_DESCRIBE_STRUCT(Header, (), (name, value))

enum class TaskKind { upload, download };
BOOST_DESCRIBE_ENUM(TaskKind, upload, download)

/// One request: an upload sends the staged file, a download makes it from the body of a 2xx answer.
struct TaskOrder {
    std::int64_t task = 0; ///< chosen by the client, from Welcome::firstTask on, each once
    TaskKind kind = TaskKind::upload;
    std::string method;
    std::string url;
    std::vector<Header> headers;
    std::string file;             ///< name in the folder for encrypted chunks
    std::int64_t maxBytes = 0;    ///< of a download
    std::int64_t idleSeconds = 0; ///< how long nothing may move
    bool allowsCellular = true;
};
BOOST_DESCRIBE_STRUCT(TaskOrder, (),
                      (task, kind, method, url, headers, file, maxBytes, idleSeconds, allowsCellular))

/// Why a task has no answer.
struct Failure {
    enum class Kind {
        connection,
        timeout,
        certificate,
        notHTTP,
        tooLarge,
        malformed, ///< an order that cannot be carried out
        file,      ///< the staged file; `code` is the system's number
    };

    Kind kind = Kind::connection;
    std::string message;
    std::optional<int> code;
};
BOOST_DESCRIBE_ENUM(Failure::Kind, connection, timeout, certificate, notHTTP, tooLarge, malformed, file)
BOOST_DESCRIBE_STRUCT(Failure, (), (kind, message, code))

/// How a task ended: with a failure, or with an answer. A download's file is there after a 2xx answer only.
struct TaskResult {
    std::int64_t task = 0;
    std::string file;
    std::optional<Failure> failure;
    std::optional<std::int64_t> status;
    std::vector<Header> headers;         ///< "Retry-After", where the answer has it
    std::optional<KRCrypto::Bytes> body; ///< of the answer, unless it is in the file
};
BOOST_DESCRIBE_STRUCT(TaskResult, (), (task, file, failure, status, headers, body))

struct Hello {
    std::int64_t version = TransferMessages::version;
};
BOOST_DESCRIBE_STRUCT(Hello, (), (version))

struct Welcome {
    std::int64_t version = TransferMessages::version;
    std::int64_t process = 0; ///< the helper's
    std::int64_t firstTask = 0;
};
BOOST_DESCRIBE_STRUCT(Welcome, (), (version, process, firstTask))

/// A message the helper did not understand, or does not take.
struct Refusal {
    std::string code; ///< "malformed", "version", "tooLarge" or "busy"
    std::string message;
};
BOOST_DESCRIBE_STRUCT(Refusal, (), (code, message))

struct FromClient {
    std::optional<Hello> hello;
    std::optional<TaskOrder> start;
    std::optional<std::int64_t> cancel;    ///< forget this task, whatever becomes of it
    std::optional<std::int64_t> collected; ///< this result need not be kept any longer
    std::optional<bool> events;            ///< answer with `eventsDelivered`
};
BOOST_DESCRIBE_STRUCT(FromClient, (), (hello, start, cancel, collected, events))

struct FromHelper {
    std::optional<Welcome> welcome;
    std::optional<TaskResult> finished;
    std::optional<bool> eventsDelivered; ///< all that was kept for a client that comes back has been sent
    std::optional<Refusal> refused;
};
BOOST_DESCRIBE_STRUCT(FromHelper, (), (welcome, finished, eventsDelivered, refused))

/// The results a helper that ends leaves for the next one.
struct Kept {
    std::int64_t version = TransferMessages::version;
    std::vector<TaskResult> results;
};
BOOST_DESCRIBE_STRUCT(Kept, (), (version, results))

} // namespace Korvane::TransferMessages
