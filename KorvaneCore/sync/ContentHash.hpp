#pragma once

#include "KorvaneCore/platform/Async.hpp"
#include "KorvaneCore/sync/LocalStat.hpp"

#include <filesystem>
#include <string>

namespace Korvane {

/// SHA-256 of a regular file, as lower-case hex. `stat` is what the file looked like before; throws
/// KRCryptoError (FileChangedDuringRead) when it is not that file any more at the end or gone, FileError when
/// it cannot be read. Whatever is written after the hash was taken changes `stat`: a file written a moment
/// ago is waited for. Reads on worker threads, a piece at a time, so that a cancelled caller waits for one
/// piece only.
asio::awaitable<std::string> contentHash(std::filesystem::path file, LocalStat stat);

} // namespace Korvane
