// vxpy-worker --fd N: serves one host over the connected socket N, with the
// library loaded from the worker's own folder.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <zrt/console.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "server/command_server.h"

namespace {

// interprocess::pylnk::server::libpylnk::feval_dispatcher(const std::string&,
// size_t, foundation::veltradata::Array*, size_t, foundation::veltradata::Array*)
constexpr const char* kDispatcherSymbol =
    "_ZN12interprocess5pylnk6server8libpylnk16feval_dispatcherERKNSt7__cxx1112basic_"
    "stringIcSt11char_traitsIcESaIcEEEmPN10foundation10veltradata5ArrayEmSE_";

int usage() {
    std::fprintf(stderr, "usage: vxpy-worker --fd N   (N: a connected stream socket)\n");
    return vxpy::worker::kExitUsage;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3 || std::string(argv[1]) != "--fd") {
        return usage();
    }
    char* end = nullptr;
    const long fd = std::strtol(argv[2], &end, 10);
    int socketType = 0;
    socklen_t length = sizeof socketType;
    if (*end != '\0' || fd < 0 || fd > 1 << 20 ||
        ::getsockopt(static_cast<int>(fd), SOL_SOCKET, SO_TYPE, &socketType, &length) != 0 ||
        socketType != SOCK_STREAM) {
        std::fprintf(stderr, "vxpy-worker: %s is not a connected stream socket\n", argv[2]);
        return usage();
    }
    // Programs that Python code starts must not hold the host's connection open.
    ::fcntl(static_cast<int>(fd), F_SETFD, FD_CLOEXEC);
    // Writing to a closed pipe is an error for the writer, not the end of the worker.
    std::signal(SIGPIPE, SIG_IGN);

    const std::filesystem::path folder =
        std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::string library = (folder / "libvxippylnk.so").string();
    void* handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_GLOBAL);
    if (handle == nullptr) {
        std::fprintf(stderr, "vxpy-worker: cannot load %s: %s\n", library.c_str(), ::dlerror());
        return vxpy::worker::kExitLibraryNotLoadable;
    }
    auto dispatcher =
        reinterpret_cast<vxpy::worker::Dispatcher>(::dlsym(handle, kDispatcherSymbol));
    if (dispatcher == nullptr) {
        std::fprintf(stderr, "vxpy-worker: %s has no feval_dispatcher\n", library.c_str());
        return vxpy::worker::kExitLibraryNotLoadable;
    }

    // Never destroyed: the process ends with _exit while threads may print.
    auto* server = new vxpy::worker::CommandServer(static_cast<int>(fd), dispatcher);
    zrt::setConsoleSink([server](const std::u16string& text) { server->print(text); });
    server->run();
}
