#include "KorvaneCore/platform/LocalSocket.hpp"

#include "KorvaneCore/platform/Files.hpp"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace Korvane::LocalSocket {

namespace {

constexpr int waitingConnections = 128;

/// An address holds 107 bytes only, so it names the file by its open folder.
class Address {
public:
    explicit Address(const std::filesystem::path& file)
        : folder_(::open(file.parent_path().c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {
        if (!folder_.isOpen())
            throw FileError("open folder", file.parent_path());
        const auto name = "/proc/self/fd/" + std::to_string(folder_.get()) + "/" + file.filename().string();
        if (name.size() >= sizeof address_.sun_path)
            throw FileError("name", file, ENAMETOOLONG);
        address_.sun_family = AF_UNIX;
        std::ranges::copy(name, address_.sun_path);
    }

    [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }

    static constexpr socklen_t size = sizeof(sockaddr_un);

private:
    FileDescriptor folder_;
    sockaddr_un address_{};
};

FileDescriptor open(const std::filesystem::path& file) {
    FileDescriptor fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.isOpen())
        throw FileError("open a socket for", file);
    return fd;
}

} // namespace

FileDescriptor listen(const std::filesystem::path& file) {
    const Address address(file);
    auto fd = open(file);
    if (::unlink(file.c_str()) != 0 && errno != ENOENT)
        throw FileError("remove", file);
    // The file takes its mode from the socket's, so it is never open to others.
    if (::fchmod(fd.get(), 0600) != 0 || ::bind(fd.get(), address.get(), Address::size) != 0 ||
        ::listen(fd.get(), waitingConnections) != 0)
        throw FileError("listen at", file);
    return fd;
}

FileDescriptor connect(const std::filesystem::path& file) {
    const Address address(file);
    auto fd = open(file);
    if (::connect(fd.get(), address.get(), Address::size) != 0)
        throw FileError("connect to", file);
    return fd;
}

bool isOwnUser(int socket) noexcept {
    ucred peer{};
    socklen_t size = sizeof peer;
    return ::getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && peer.uid == ::geteuid();
}

} // namespace Korvane::LocalSocket
