#include "PartialFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <vector>

#include "CliError.h"

namespace fs = std::filesystem;

namespace {

// Paths the signal handler removes. Each slot's text is written before the slot is
// marked busy and read by the handler only while it is, so the handler needs no lock.
constexpr int slotCount = 8;
constexpr std::size_t slotPathBytes = 4096;
struct CleanupSlot {
    std::atomic<bool> busy{false};
    char path[slotPathBytes]{};
};
std::array<CleanupSlot, slotCount> cleanupSlots;

extern "C" void removePartialFilesAndReraise(int signalNumber)
{
    for (CleanupSlot& slot : cleanupSlots)
        if (slot.busy.load()) unlink(slot.path);
    std::signal(signalNumber, SIG_DFL);
    std::raise(signalNumber);
}

void installSignalHandlers()
{
    static std::once_flag installed;
    std::call_once(installed, [] {
        for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) {
            struct sigaction action {};
            action.sa_handler = removePartialFilesAndReraise;
            sigemptyset(&action.sa_mask);
            sigaction(signalNumber, &action, nullptr);
        }
    });
}

int registerForCleanup(const std::string& path)
{
    if (path.size() >= slotPathBytes) return -1;
    for (int i = 0; i < slotCount; ++i) {
        CleanupSlot& slot = cleanupSlots[i];
        if (slot.busy.load()) continue;
        std::memcpy(slot.path, path.c_str(), path.size() + 1);
        bool expected = false;
        if (slot.busy.compare_exchange_strong(expected, true)) return i;
    }
    return -1;
}

void unregister(int slot)
{
    if (slot >= 0) cleanupSlots[slot].busy.store(false);
}

mode_t newFilePermissions()
{
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

PartialFile::PartialFile(const std::string& target)
{
    requireFileTarget(target, "output '" + target + "'");
    const fs::path path = finalTarget(target);
    const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
    installSignalHandlers();
    // A hidden name beside the target, short enough for any file system's 255 bytes.
    std::string hidden = path.filename().string().substr(0, 200);
    hidden.insert(hidden.begin(), '.');
    hidden += ".ferrotip-XXXXXX";
    const std::string pattern = (directory / hidden).string();
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    descriptor_ = mkstemp(name.data());
    if (descriptor_ < 0)
        throw CliError("cannot write '" + target + "': " + std::strerror(errno));
    path_ = name.data();
    slot_ = registerForCleanup(path_);
    fchmod(descriptor_, newFilePermissions());
}

PartialFile::~PartialFile() { discard(); }

void PartialFile::commitTo(const std::string& target)
{
    const int closed = close(descriptor_);
    descriptor_ = -1;
    if (closed != 0 || std::rename(path_.c_str(), finalTarget(target).c_str()) != 0) {
        const int reason = errno;
        discard();
        throw CliError("cannot move the result into '" + target + "': " + std::strerror(reason));
    }
    unregister(slot_);
    slot_ = -1;
    path_.clear();
}

void PartialFile::write(const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t wrote = ::write(descriptor_, text.data() + done, text.size() - done);
        if (wrote < 0 && errno == EINTR) continue;
        if (wrote < 0) throw CliError(std::string("cannot write '") + path_ + "': " + std::strerror(errno));
        done += static_cast<std::size_t>(wrote);
    }
}

void PartialFile::discard()
{
    if (descriptor_ >= 0) close(descriptor_);
    descriptor_ = -1;
    if (!path_.empty()) unlink(path_.c_str());
    unregister(slot_);
    slot_ = -1;
    path_.clear();
}

bool namesSameFile(const std::string& a, const std::string& b)
{
    struct stat first {}, second {};
    if (stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0)
        return first.st_dev == second.st_dev && first.st_ino == second.st_ino;
    std::error_code error;
    return std::filesystem::weakly_canonical(a, error) == std::filesystem::weakly_canonical(b, error);
}

fs::path finalTarget(const std::string& target)
{
    std::error_code error;
    if (!fs::is_symlink(target, error)) return target;
    const fs::path resolved = fs::weakly_canonical(target, error);
    return error ? fs::path(target) : resolved;
}

void requireFileTarget(const std::string& target, const std::string& what)
{
    const fs::path path = finalTarget(target);
    const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::error_code error;
    if (!fs::is_directory(directory, error))
        throw CliError(what + ": folder '" + directory.string() + "' does not exist");
    struct stat existing {};
    if (stat(path.c_str(), &existing) != 0) return;  // nothing there yet
    if (S_ISDIR(existing.st_mode)) throw CliError(what + " is a directory; name a file");
    if (!S_ISREG(existing.st_mode))
        throw CliError(what + " is a device, pipe or socket, which the result would replace; name a regular file");
}
