// The second process of tests on transfers: `korvane-test-transfer put|full IDENTIFIER URL FILE`. Uploads the
// file in the background; `full` on a disk that takes no file of 4 KiB. Prints "done" or what went wrong.

#include "KorvaneCore/api/BackgroundBlobTransport.hpp"
#include "KorvaneCore/platform/Files.hpp"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/io_context.hpp>
#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <string_view>

using namespace Korvane;

int main(int argc, char** argv) try {
    if (argc != 5)
        return 2;
    const auto bytes = readFile(argv[4], std::size_t{64} << 20);
    BackgroundBlobTransport transport(argv[2], true);
    if (std::string_view(argv[1]) == "full") {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{4096, 4096};
        if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
            return 2;
    }
    asio::io_context context;
    asio::co_spawn(context, transport.put(argv[3], KRCrypto::asBytes(bytes)),
                   [](const std::exception_ptr& error) {
                       try {
                           if (error)
                               std::rethrow_exception(error);
                           std::puts("done");
                       } catch (const FileError& failure) {
                           std::printf("file error: %s\n", failure.code().message().c_str());
                       } catch (const std::exception& failure) {
                           std::puts(failure.what());
                       }
                   });
    context.run();
    return 0;
} catch (const std::exception& error) {

    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
