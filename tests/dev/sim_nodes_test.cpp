// The device-node emulation (libboardsim.so, preloaded by ctest) driven
// through the tool's own device access layer and through plain libc calls:
// record round trips on /dev/hal_nvram, /dev/hal_gpio, /dev/hal_misc,
// /dev/hal_rmc, /dev/hal_watchdog, the redirected proc files, the journal,
// and that everything else passes through untouched.
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

int watchdog_number()
{
    int fd = open("/proc/watchdog_status", O_RDONLY);
    char buf[3] = {};
    if (fd < 0 || lseek(fd, 68, SEEK_SET) != 68 || read(fd, buf, 2) != 2)
        return -1;
    close(fd);
    return std::atoi(buf);
}

} // namespace

TEST_F(BoardTest, NvramRoundTripJournalAndUnsetVariable)
{
    EQU_ENV_S e = env("ethaddr", "0A:1b:2c:3d:4e:5f");
    ASSERT_EQ(EQU_SetEnvToFlash(&e), EQU_OK);
    EXPECT_EQ(getenv_flash("ethaddr"), "0A:1b:2c:3d:4e:5f");
    EXPECT_EQ(read("nvram/ethaddr"), "0A:1b:2c:3d:4e:5f\n");
    EXPECT_TRUE(logged("ioctl /dev/hal_nvram 0x40615 name=\"ethaddr\" value=\"0A:1b:2c:3d:4e:5f\" -> 0"));
    EXPECT_TRUE(logged("ioctl /dev/hal_nvram 0x40614 name=\"ethaddr\" value=\"0A:1b:2c:3d:4e:5f\" -> 0"));
    EXPECT_EQ(count("open /dev/hal_nvram "), 2);
    EXPECT_EQ(count("close /dev/hal_nvram "), 2);

    // A value with its own trailing newline, at full length, comes back whole.
    std::string big(EQU_ENV_VALUE_LEN - 2, 'x');
    big += "\n";
    EQU_ENV_S b = env("ManuInfo", big.c_str());
    ASSERT_EQ(EQU_SetEnvToFlash(&b), EQU_OK);
    EXPECT_EQ(getenv_flash("ManuInfo"), big);

    // Defaults answer until a variable is removed from the directory.
    EXPECT_EQ(getenv_flash("factory_timezone"), "GMT+8");
    std::filesystem::remove(dir_ + "/nvram/factory_timezone");
    EXPECT_EQ(getenv_flash("factory_timezone"), "<fail>");
    EXPECT_TRUE(logged("ioctl /dev/hal_nvram 0x40614 name=\"factory_timezone\" -> -1 errno=ENOENT"));
}

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
}

TEST_F(BoardTest, GpioSetModeWriteReadAndStraps)
{
    ASSERT_EQ(EQU_GPIO_SetMode(3, 22, 1), EQU_OK);
    ASSERT_EQ(EQU_GPIO_WriteByte(3, 22, 0), EQU_OK);
    uint32_t level = 7;
    ASSERT_EQ(EQU_GPIO_ReadByte(3, 22, &level), EQU_OK);
    EXPECT_EQ(level, 0u);
    EXPECT_EQ(read("gpio/3.22"), "0\n");
    EXPECT_EQ(read("gpio/3.22.mode"), "1\n");
    EXPECT_TRUE(logged("ioctl /dev/hal_gpio 0x4061f group=3 bit=22 mode=1 -> 0"));
    EXPECT_TRUE(logged("ioctl /dev/hal_gpio 0x40610 group=3 bit=22 value=0 -> 0"));
    EXPECT_TRUE(logged("ioctl /dev/hal_gpio 0x40611 group=3 bit=22 value=0 -> 0"));

    // Board-id straps come from the default state; a changed file wins.
    ASSERT_EQ(EQU_GPIO_ReadByte(4, 7, &level), EQU_OK);
    EXPECT_EQ(level, 1u);
    put("gpio/4.7", "0\n");
    ASSERT_EQ(EQU_GPIO_ReadByte(4, 7, &level), EQU_OK);
    EXPECT_EQ(level, 0u);
}

TEST_F(BoardTest, RmcModeAndKeyPoll)
{
    ASSERT_EQ(EQU_SetRmcTestMode(1), EQU_OK);
    EXPECT_EQ(read("rmc/mode"), "1\n");
    EXPECT_TRUE(logged("ioctl /dev/hal_rmc 0x40113 mode=1 pad=0 -> 0"));

    int fd = open("/dev/hal_rmc", O_RDWR);
    ASSERT_GE(fd, 0);
    uint32_t rec[3] = {21, 0xdeadbeef, 99};
    ASSERT_EQ(ioctl(fd, 0x4010D, rec), 0);
    EXPECT_EQ(rec[2], 1u);    // released
    put("keys/21", "pressed\n");
    ASSERT_EQ(ioctl(fd, 0x4010D, rec), 0);
    EXPECT_EQ(rec[2], 0u);
    close(fd);
    EXPECT_TRUE(logged("ioctl /dev/hal_rmc 0x4010d key=21 state=0 -> 0"));
}

TEST_F(BoardTest, I2cReadWriteAndAbsentDevice)
{
    uint32_t v = 0;
    ASSERT_EQ(EQU_I2C_Read(1, 0x48, 0, 1, &v), EQU_OK);
    EXPECT_EQ(v, 0x19u);
    EXPECT_TRUE(logged("ioctl /dev/hal_misc 0x40608 bus=1 addr=0x48 reg=0x0 len=1 data=0x19 -> 0"));
    ASSERT_EQ(EQU_I2C_Write(1, 0x48, 2, 0x4b), EQU_OK);
    ASSERT_EQ(EQU_I2C_Read(1, 0x48, 2, 1, &v), EQU_OK);
    EXPECT_EQ(v, 0x4bu);
    EXPECT_NE(EQU_I2C_Read(3, 0x48, 0, 1, &v), EQU_OK);
    EXPECT_TRUE(logged("ioctl /dev/hal_misc 0x40608 bus=3 addr=0x48 reg=0x0 len=1 -> -1 errno=ENXIO"));
}

TEST_F(BoardTest, WatchdogArmingShowsRunningInProcStatus)
{
    EXPECT_LE(watchdog_number(), 1);
    int fd = open("/dev/hal_watchdog", O_RDWR);
    ASSERT_GE(fd, 0);
    uint32_t rec[3] = {1, 0, 0};
    ASSERT_EQ(ioctl(fd, 0x70108, rec), 0);
    EXPECT_GT(watchdog_number(), 1);
    EXPECT_TRUE(logged("ioctl /dev/hal_watchdog 0x70108 mode=1 rest=00,00,00,00,00,00,00,00 -> 0"));
    // Left open, as the tool leaves an armed watchdog: one open, no close.
    EXPECT_EQ(count("open /dev/hal_watchdog "), 1);
    EXPECT_EQ(count("close /dev/hal_watchdog "), 0);
    EXPECT_EQ(count("open /proc/watchdog_status "), count("close /proc/watchdog_status "));
}

TEST_F(BoardTest, ResetButtonTakesAPlainNumber)
{
    int fd = open("/dev/hal_gpio", O_RDWR);
    ASSERT_GE(fd, 0);
    // 15 is not an address: following it would crash the test.
    EXPECT_EQ(ioctl(fd, 0x40636, 15), 0);
    put("keys/reset", "released\n");
    errno = 0;
    EXPECT_EQ(ioctl(fd, 0x40636, 15), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    close(fd);
    EXPECT_TRUE(logged("ioctl /dev/hal_gpio 0x40636 arg=15 -> 0"));
    EXPECT_TRUE(logged("ioctl /dev/hal_gpio 0x40636 arg=15 -> -1 errno=ETIMEDOUT"));
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
