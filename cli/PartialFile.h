// A new, exclusively created file beside a target, to be renamed onto the target
// once it is complete. A target that is a symlink keeps its link: the file it points
// to is replaced. A device, pipe or socket is refused, since renaming a file onto it
// would replace it. The name is random (mkstemp), so an existing file, symlink
// or directory of any name is never opened or followed. Until commitTo() or
// destruction the path is registered for removal when SIGINT, SIGTERM or SIGHUP
// arrives: the handler only unlinks the prepared paths and re-raises the signal.
// Construction allocates and opens; one object per output, any thread.
#pragma once

#include <filesystem>
#include <string>

class PartialFile {
public:
    // Creates the file in the target's folder with the permissions a new file gets
    // (0666 less the umask). Throws CliError naming the target when it cannot.
    explicit PartialFile(const std::string& target);
    ~PartialFile();
    PartialFile(const PartialFile&) = delete;
    PartialFile& operator=(const PartialFile&) = delete;

    // The open descriptor, owned by this object (a user must not close it).
    int descriptor() const { return descriptor_; }
    const std::string& path() const { return path_; }

    // Writes all of `text` at the file's position; throws CliError with the reason.
    void write(const std::string& text);

    // Closes the file and renames it onto the target; on failure removes it and
    // throws CliError.
    void commitTo(const std::string& target);

private:
    void discard();

    std::string path_;
    int descriptor_ = -1;
    int slot_ = -1;
};

// Whether two paths name one file: the same device and inode where both exist,
// otherwise the same path once resolved (for a file not written yet).
bool namesSameFile(const std::string& a, const std::string& b);

// Where output for `target` lands: the file a symlink points to, else the target.
std::filesystem::path finalTarget(const std::string& target);

// Refuses, before any work, an output whose folder is missing or that names a folder,
// a device, a pipe or a socket; `what` starts each message ("--report 'x.csv'").
void requireFileTarget(const std::string& target, const std::string& what);
