// The partial output file: exclusive, new permissions, and gone after a failure or
// an interrupt.
#include "PartialFile.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "CliError.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

TEST(PartialFile, IsRemovedUnlessCommitted)
{
    testsupport::TempDir dir("ferrotip-partial");
    std::string partialPath;
    {
        PartialFile partial(dir / "out.wav");
        partialPath = partial.path();
        EXPECT_TRUE(fs::exists(partialPath));
        EXPECT_EQ(fs::path(partialPath).parent_path(), dir.path());
    }
    EXPECT_FALSE(fs::exists(partialPath));
    EXPECT_TRUE(fs::is_empty(dir.path()));
}

TEST(PartialFile, CommitMovesItIntoPlaceWithTheUsualPermissions)
{
    testsupport::TempDir dir("ferrotip-partial");
    const mode_t mask = umask(022);
    {
        PartialFile partial(dir / "out.wav");
        ASSERT_EQ(write(partial.descriptor(), "abc", 3), 3);
        partial.commitTo(dir / "out.wav");
    }
    umask(mask);
    struct stat info {};
    ASSERT_EQ(stat((dir / "out.wav").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0644u);
    EXPECT_EQ(info.st_size, 3);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 1);
}

// In a child: create the file, then take the signal. The child must die of that
// signal, and the file must be gone.
TEST(PartialFile, AnInterruptRemovesItAndStillEndsTheProgram)
{
    for (int signalNumber : {SIGINT, SIGTERM, SIGHUP}) {
        testsupport::TempDir dir("ferrotip-partial");
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            PartialFile partial(dir / "out.wav");
            std::raise(signalNumber);
            _exit(0);  // not reached: the signal ends the program
        }
        int status = 0;
        ASSERT_EQ(waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signalNumber) << signalNumber;
        EXPECT_TRUE(fs::is_empty(dir.path())) << signalNumber;
    }
}

// A pipe or device named as the output would be replaced by a plain file: refused.
TEST(PartialFile, RefusesAPipeAsTarget)
{
    testsupport::TempDir dir("ferrotip-partial");
    const std::string fifo = dir / "pipe.wav";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_THROW(requireFileTarget(fifo, "output"), CliError);
    EXPECT_THROW(PartialFile{fifo}, CliError);
    EXPECT_THROW(requireFileTarget(dir / "no/out.wav", "output"), CliError);
    EXPECT_NO_THROW(requireFileTarget(dir / "new.wav", "output"));
}

// Writing through a symlink replaces the file it points to and keeps the link; a long
// name still leaves room for the hidden partial name beside it.
TEST(PartialFile, ASymlinkKeepsItsLinkAndLongNamesFit)
{
    testsupport::TempDir dir("ferrotip-partial");
    fs::create_directory(dir / "real");
    std::ofstream(dir / "real/take.wav") << "old";
    fs::create_symlink(dir / "real/take.wav", dir / "link.wav");
    {
        PartialFile partial(dir / "link.wav");
        partial.write("new");
        partial.commitTo(dir / "link.wav");
    }
    EXPECT_TRUE(fs::is_symlink(dir / "link.wav"));
    std::string text;
    std::ifstream(dir / "real/take.wav") >> text;
    EXPECT_EQ(text, "new");
    const std::string longName = std::string(250, 'a') + ".wav";
    PartialFile partial(dir / longName);
    partial.write("x");
    EXPECT_NO_THROW(partial.commitTo(dir / longName));
    EXPECT_TRUE(fs::exists(dir / longName));
}

}  // namespace
