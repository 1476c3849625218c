// The device-node emulation (libboardsim.so, preloaded by ctest) where the
// device-layer and end-to-end tests do not reach it: nvram kept per state
// directory, the board's proc and sys files, what the descriptor table must
// not get wrong, and that everything not the board's passes through.
#include "equ_common.h"
#include "sim_helpers.h"

#include <algorithm>
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

    EXPECT_EQ(getenv_flash("rtcdate"), "2031-07-04");

    // Defaults answer until a variable is removed from the directory.
    EXPECT_EQ(getenv_flash("factory_timezone"), "GMT+8");
    std::filesystem::remove(dir_ + "/nvram/factory_timezone");
    EXPECT_EQ(getenv_flash("factory_timezone"), "<fail>");
    EXPECT_TRUE(
        logged("ioctl /dev/hal_nvram 0x40614 name=\"factory_timezone\" -> -1 errno=ENOENT"));
}

TEST_F(BoardTest, ProcAndSysFilesLandInTheStateDirectoryEvenFromTheShell)
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

    // A sys file is the board's when the state puts it there.
    const char *status = "/sys/class/drm/card9-SIM-1/status";
    EXPECT_EQ(access(status, R_OK), -1);
    put(status + 1, "connected\n");
    int fd = open(status, O_RDONLY);
    ASSERT_GE(fd, 0);
    char text[16] = {};
    EXPECT_EQ(::read(fd, text, sizeof text - 1), 10);
    EXPECT_STREQ(text, "connected\n");
    close(fd);
}

TEST_F(BoardTest, OtherPathsAndDescriptorsPassThrough)
{
    int fd = open("/dev/null", O_RDONLY);
    EXPECT_GE(fd, 0);
    close(fd);
    EXPECT_EQ(journal(), "");

    // A successful board open leaves errno as it was.
    errno = EDOM;
    fd = open("/dev/hal_misc", O_RDWR);
    EXPECT_EQ(errno, EDOM);
    close(fd);

    // Once the state has dev/, it lists the nodes; without a state, none.
    ASSERT_EQ(EQU_SetRmcTestMode(1), EQU_OK);
    put("dev/hal_gpio", "");
    EXPECT_EQ(EQU_SetRmcTestMode(1), EQU_FAIL);
    unsetenv("BOARDSIM_STATE");
    errno = 0;
    EXPECT_EQ(open("/dev/hal_gpio", O_RDWR), -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(BoardTest, UnknownRequestsAndReusedDescriptorNumbers)
{
    int fd = open("/dev/hal_gpio", O_RDWR);
    ASSERT_GE(fd, 0);
    errno = 0;
    EXPECT_EQ(ioctl(fd, 0x12345, nullptr), -1);
    EXPECT_EQ(errno, ENOTTY);
    EXPECT_TRUE(logged("ioctl /dev/hal_gpio 0x12345 arg=0x0 -> -1 errno=ENOTTY"));
    uint32_t rec[3] = {3, 22, 1};
    EXPECT_EQ(ioctl(fd, 0x40610, nullptr), -1);  // a record request without its record
    EXPECT_EQ(errno, EFAULT);

    // Once the number names a pipe, the board no longer answers on it.
    int pipefd[2];
    ASSERT_EQ(pipe(pipefd), 0);
    ASSERT_EQ(dup2(pipefd[0], fd), fd);
    ASSERT_EQ(write(pipefd[1], "xy", 2), 2);
    int queued = 0;
    EXPECT_EQ(ioctl(fd, FIONREAD, &queued), 0);
    EXPECT_EQ(queued, 2);
    EXPECT_EQ(ioctl(fd, 0x40610, rec), -1);
    EXPECT_EQ(count("ioctl /dev/hal_gpio 0x40610"), 1);
    close(fd);
    close(pipefd[0]);
    close(pipefd[1]);
    EXPECT_EQ(count("close /dev/hal_gpio"), 0);
}

TEST_F(BoardTest, StateDirectoryMadeOnFirstUseLosesNoLine)
{
    use(dir_ + "/not/yet/there");
    int fd = open("/dev/hal_gpio", O_RDWR);
    ASSERT_GE(fd, 0);
    close(fd);
    std::string fds = std::to_string(fd);
    std::string j = read("not/yet/there/journal");
    EXPECT_EQ(0u, j.find("open /dev/hal_gpio fd=" + fds + " flags=O_RDWR -> " + fds + " at="));
    EXPECT_NE(std::string::npos, j.find("\nclose /dev/hal_gpio fd=" + fds + " -> 0 at="));
    EXPECT_EQ(2, std::count(j.begin(), j.end(), '\n'));
}
