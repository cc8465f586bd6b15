#include "SpooledInput.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "CliError.h"
#include "PartialFile.h"

namespace fs = std::filesystem;

namespace {

struct Spools {
    std::mutex lock;
    std::map<std::string, std::unique_ptr<PartialFile>> copies;  // removed at exit by their destructors
};

Spools& spools()
{
    static Spools instance;
    return instance;
}

bool readableOnlyOnce(const struct stat& status)
{
    return S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode) || S_ISSOCK(status.st_mode);
}

class Descriptor {
public:
    explicit Descriptor(int value) : value_(value) {}
    ~Descriptor() { if (value_ > 2) close(value_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return value_; }

private:
    int value_;
};

void copyAll(int from, PartialFile& to, const std::string& path)
{
    std::vector<char> buffer(1 << 16);
    for (;;) {
        const ssize_t got = read(from, buffer.data(), buffer.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw CliError("cannot read '" + path + "': " + std::strerror(errno));
        if (got == 0) return;
        to.write(std::string(buffer.data(), static_cast<std::size_t>(got)));
    }
}

std::unique_ptr<PartialFile> spool(const std::string& path)
{
    const Descriptor source(namesStandardInput(path) ? STDIN_FILENO : open(path.c_str(), O_RDONLY));
    if (source.get() < 0) throw CliError("cannot open '" + path + "': " + std::strerror(errno));
    // Waiting for audio typed at a terminal would look like a hang.
    if (isatty(source.get()))
        throw CliError("cannot read '" + path + "': it is a terminal; pipe audio into it or name a file");
    std::error_code error;
    fs::path folder = fs::temp_directory_path(error);
    if (error) folder = "/tmp";
    auto copy = std::make_unique<PartialFile>((folder / "ferrotip-input").string());
    copyAll(source.get(), *copy, path);
    return copy;
}

}  // namespace

bool namesStandardInput(const std::string& path) { return path == "-"; }

std::string rereadablePath(const std::string& path)
{
    if (!namesStandardInput(path)) {
        struct stat status {};
        if (stat(path.c_str(), &status) != 0) {
            if (errno == ENOENT) throw CliError("cannot open '" + path + "': no such file");
            throw CliError("cannot open '" + path + "': " + std::strerror(errno));
        }
        if (S_ISDIR(status.st_mode)) throw CliError("cannot open '" + path + "': it is a directory");
        if (!readableOnlyOnce(status)) return path;
    }
    Spools& all = spools();
    const std::lock_guard<std::mutex> held(all.lock);
    auto& copy = all.copies[path];
    if (!copy) copy = spool(path);
    return copy->path();
}
