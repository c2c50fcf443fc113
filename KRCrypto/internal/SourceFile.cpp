#include "KRCrypto/internal/SourceFile.hpp"

#include "KRCrypto/KRCryptoError.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace KRCrypto::Internal {

namespace {

int openedForReading(const std::filesystem::path& path) {
    int descriptor = -1;
    do {
        descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    } while (descriptor < 0 && errno == EINTR);
    return descriptor;
}

[[noreturn]] void failAt(const std::filesystem::path& path, int code) {
    throw std::filesystem::filesystem_error("cannot read file", path,
                                            std::error_code(code, std::system_category()));
}

} // namespace

std::int64_t sizeAttribute(const std::filesystem::path& path) {
    struct stat status{};
    if (::stat(path.c_str(), &status) != 0) {
        failAt(path, errno);
    }
    return status.st_size;
}

SourceFile::SourceFile(const std::filesystem::path& path) : path_(path), descriptor_(openedForReading(path)) {
    if (descriptor_ < 0) {
        fail(errno);
    }
    struct stat status{};
    int refusal = ::fstat(descriptor_, &status) != 0 ? errno : 0;
    if (refusal == 0 && !S_ISREG(status.st_mode)) {
        refusal = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    }
    if (refusal != 0) {
        ::close(descriptor_);
        fail(refusal);
    }
}

SourceFile::~SourceFile() {
    ::close(descriptor_);
}

std::int64_t SourceFile::size() const {
    const off_t end = ::lseek(descriptor_, 0, SEEK_END);
    if (end < 0) {
        fail(errno);
    }
    return end;
}

std::size_t SourceFile::readAt(std::int64_t offset, MutableBytes out) const {
    std::size_t done = 0;
    while (done < out.size()) {
        const MutableBytes rest = out.subspan(done);
        const ssize_t got = ::pread(descriptor_, rest.data(), rest.size(), offset + static_cast<off_t>(done));
        if (got == 0) {
            break;
        }
        if (got > 0) {
            done += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            fail(errno);
        }
    }
    return done;
}

void SourceFile::readExactlyAt(std::int64_t offset, MutableBytes out) const {
    if (readAt(offset, out) != out.size()) {
        throw KRCryptoError(KRCryptoError::FileChangedDuringRead{});
    }
}

void SourceFile::fail(int code) const {
    failAt(path_, code);
}

} // namespace KRCrypto::Internal
