// The device-node emulation (libboardsim.so, preloaded by ctest) where the
// device-layer and end-to-end tests do not reach it: nvram kept per state
// directory and its defaults, the redirected proc files, and that everything
// else passes through untouched.
#include "equ_common.h"
#include "sim_helpers.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

// These tests run with the (uninstrumented) preload ahead of the ASan runtime
// when the build is sanitized; ASan reads this hook before it checks the order.
extern "C" __attribute__((used)) const char *__asan_default_options()
{
    return "verify_asan_link_order=0";
}

namespace {

EQU_ENV_S env(const char *name, const char *value = "")
{
    EQU_ENV_S e{};
    std::strncpy(e.szName, name, sizeof e.szName - 1);
    std::strncpy(e.szValue, value, sizeof e.szValue - 1);
    return e;
}

std::string getenv_flash(const char *name)
{
    EQU_ENV_S e = env(name);
    return EQU_GetEnvFromFlash(&e) == EQU_OK ? std::string(e.szValue) : std::string("<fail>");
}

}  // namespace

TEST_F(BoardTest, NvramPersistsAcrossRunsOfTheSameDirectory)
{
    pid_t child = fork();
    if (child == 0) {
        EQU_ENV_S e = env("rtcdate", "2031-07-04");
        _exit(EQU_SetEnvToFlash(&e) == EQU_OK ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0);

    std::string first = dir_;
    use(first + "-other");
    std::filesystem::remove_all(first + "-other");
    EXPECT_EQ(getenv_flash("rtcdate"), "<fail>");
    use(first);
    EXPECT_EQ(getenv_flash("rtcdate"), "2031-07-04");

    // Defaults answer until a variable is removed from the directory.
    EXPECT_EQ(getenv_flash("factory_timezone"), "GMT+8");
    std::filesystem::remove(dir_ + "/nvram/factory_timezone");
    EXPECT_EQ(getenv_flash("factory_timezone"), "<fail>");
    EXPECT_TRUE(
        logged("ioctl /dev/hal_nvram 0x40614 name=\"factory_timezone\" -> -1 errno=ENOENT"));
}

TEST_F(BoardTest, ProcFilesLandInTheStateDirectoryEvenFromTheShell)
{
    ASSERT_EQ(std::system("echo 0 > /proc/sys/kernel/printk"), 0);
    EXPECT_EQ(read("proc/sys/kernel/printk"), "0\n");

    put("proc/disk/disk_name", "sda -1 sdb\n");
    FILE *fp = fopen("/proc/disk/disk_name", "r");
    ASSERT_NE(fp, nullptr);
    char word[16] = {};
    ASSERT_EQ(fscanf(fp, "%15s", word), 1);
    EXPECT_STREQ(word, "sda");
    fclose(fp);
    EXPECT_EQ(count("open /proc/disk/disk_name "), 1);
    EXPECT_EQ(count("close /proc/disk/disk_name "), 1);
}

TEST_F(BoardTest, OtherPathsAndDescriptorsPassThrough)
{
    int pipefd[2];
    ASSERT_EQ(pipe(pipefd), 0);
    ASSERT_EQ(write(pipefd[1], "abc", 3), 3);
    int queued = 0;
    EXPECT_EQ(ioctl(pipefd[0], FIONREAD, &queued), 0);
    EXPECT_EQ(queued, 3);
    close(pipefd[0]);
    close(pipefd[1]);
    int fd = open("/dev/null", O_RDONLY);
    EXPECT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(journal(), "");

    // A successful board open leaves errno as it was.
    errno = EDOM;
    fd = open("/dev/hal_misc", O_RDWR);
    EXPECT_EQ(errno, EDOM);
    close(fd);

    // Without a state directory nothing is the board's.
    unsetenv("BOARDSIM_STATE");
    errno = 0;
    EXPECT_EQ(open("/dev/hal_gpio", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(EQU_SetRmcTestMode(1), EQU_FAIL);
}
