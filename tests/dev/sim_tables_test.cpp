// The less used nodes (/dev/hal_runtime, /dev/harddisk, /dev/hal_switch),
// what the descriptor table must not get wrong (unknown requests, reused
// descriptor numbers), journal lines written by several processes at once,
// and the driver library without a state directory.
#include "drv_api.h"
#include "equ_common.h"
#include "sim_helpers.h"

#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

int open_node(const char *path)
{
    int fd = open(path, O_RDWR);
    EXPECT_GE(fd, 0) << path;
    return fd;
}

}  // namespace

TEST_F(BoardTest, RuntimeRecordRoundTrips)
{
    int fd = open_node("/dev/hal_runtime");
    int32_t date[3] = {0, 0, 0};
    ASSERT_EQ(ioctl(fd, 0x3020A, date), 0);
    EXPECT_EQ(read("runtime/first_use"), "2000-00-00\n");
    put("runtime/first_use", "2027-11-30\n");
    ASSERT_EQ(ioctl(fd, 0x30209, date), 0);
    EXPECT_EQ(date[0], 27);
    EXPECT_EQ(date[1], 11);
    EXPECT_EQ(date[2], 30);

    int32_t total[2] = {12, 7};
    ASSERT_EQ(ioctl(fd, 0x3020C, total), 0);
    int32_t back[2] = {};
    ASSERT_EQ(ioctl(fd, 0x3020B, back), 0);
    EXPECT_EQ(back[0], 12);
    EXPECT_EQ(back[1], 7);

    uint8_t zeros[24] = {};
    ASSERT_EQ(ioctl(fd, 0x3020D, zeros), 0);
    EXPECT_EQ(read("runtime/record"), "on\n");
    ASSERT_EQ(ioctl(fd, 0x3020E, zeros), 0);
    EXPECT_EQ(read("runtime/record"), "off\n");
    close(fd);
    EXPECT_TRUE(logged("ioctl /dev/hal_runtime 0x30209 year=27 month=11 day=30 -> 0"));
}

TEST_F(BoardTest, HarddiskPresenceCapacityAndUsbTables)
{
    put("disk/present", "1 0 1\n");
    put("disk/capacity", "500107862016 0 2000398934016\n");
    put("usb/0", "name=sdc present=0 id=5\n");
    put("usb/1", "name=sdd present=1 id=6\n");
    int fd = open_node("/dev/harddisk");

    std::vector<uint8_t> present(72, 0xee);
    ASSERT_EQ(ioctl(fd, 0x40500, present.data()), 0);
    EXPECT_EQ(present[0], 1);
    EXPECT_EQ(present[1], 0);
    EXPECT_EQ(present[2], 1);
    EXPECT_EQ(present[24], 0);  // other cabinets are empty
    EXPECT_EQ(present[71], 0);

    std::vector<uint8_t> cap(6912, 0xee);
    ASSERT_EQ(ioctl(fd, 0x40510, cap.data()), 0);
    uint64_t bytes = 0;
    std::memcpy(&bytes, cap.data() + 2 * 96 + 80, 8);
    EXPECT_EQ(bytes >> 30, 1863u);

    std::vector<uint8_t> usb(1024, 0xee);
    ASSERT_EQ(ioctl(fd, 0x40504, usb.data()), 0);
    EXPECT_STREQ(reinterpret_cast<char *>(usb.data()), "sdc");
    int32_t p0 = 0, p1 = 0;
    uint32_t id0 = 0, id1 = 0;
    std::memcpy(&p0, usb.data() + 20, 4);
    std::memcpy(&p1, usb.data() + 148, 4);
    std::memcpy(&id0, usb.data() + 36, 4);
    std::memcpy(&id1, usb.data() + 164, 4);
    EXPECT_EQ(p0, 0);
    EXPECT_EQ(p1, 1);
    EXPECT_NE(id0, id1);
    close(fd);
}

TEST_F(BoardTest, SwitchPortRegisters)
{
    int fd = open_node("/dev/hal_switch");
    uint32_t sw[4] = {0, 2, 1, 0};
    ASSERT_EQ(ioctl(fd, 0x40809, sw), 0);
    EXPECT_EQ(sw[3], 0x1cu);
    sw[2] = 3;
    errno = 0;
    EXPECT_EQ(ioctl(fd, 0x40809, sw), -1);
    EXPECT_EQ(errno, ENODEV);
    close(fd);
}

TEST_F(BoardTest, UnknownRequestsAndReusedDescriptorNumbers)
{
    int fd = open_node("/dev/hal_gpio");
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

TEST_F(BoardTest, JournalLinesFromSeveralProcessesStayWhole)
{
    constexpr int kProcs = 4, kCalls = 40;
    std::vector<pid_t> kids;
    for (int p = 0; p < kProcs; ++p) {
        pid_t child = fork();
        if (child == 0) {
            bool ok = true;
            for (int i = 0; i < kCalls; ++i)
                ok = EQU_GPIO_WriteByte(3, 22 + static_cast<uint32_t>(p),
                                        static_cast<uint32_t>(i & 1)) == EQU_OK &&
                     ok;
            _exit(ok ? 0 : 1);
        }
        kids.push_back(child);
    }
    for (pid_t k : kids) {
        int status = -1;
        ASSERT_EQ(waitpid(k, &status, 0), k);
        EXPECT_EQ(status, 0);
    }
    std::istringstream in(journal());
    int lines = 0;
    for (std::string s; std::getline(in, s); ++lines) {
        bool known = s.starts_with("open /dev/hal_gpio fd=") ||
                     s.starts_with("close /dev/hal_gpio fd=") ||
                     s.starts_with("ioctl /dev/hal_gpio 0x40610 group=3 bit=");
        bool ended = s.find(" -> ") != std::string::npos &&
                     std::isdigit(static_cast<unsigned char>(s.back()));
        EXPECT_TRUE(known && ended) << s;
    }
    EXPECT_EQ(lines, kProcs * kCalls * 3);
}

TEST_F(BoardTest, DriverWithoutStateDirectoryUsesDefaultsAndMemory)
{
    unsetenv("BOARDSIM_STATE");
    uint32_t id = 0;
    ASSERT_EQ(DRV_SysCtl(DRV_SYS_GET_BOARD_ID, &id), 0);
    EXPECT_EQ(id, 0x44130109u);
    char zone[40] = {};
    std::strcpy(zone + 8, "GMT+3");
    ASSERT_EQ(DRV_PerpCtl(DRV_PERP_SET_TIMEZONE, zone), 0);
    char back[40] = {};
    ASSERT_EQ(DRV_PerpCtl(DRV_PERP_GET_TIMEZONE, back), 0);
    EXPECT_STREQ(back + 8, "GMT+3");
    EXPECT_FALSE(std::filesystem::exists(dir_ + "/journal"));
}

TEST_F(BoardTest, StateDirectoryMadeOnFirstUseLosesNoLine)
{
    std::string fresh = dir_ + "/not/yet/there";
    use(fresh);
    int fd = open("/dev/hal_gpio", O_RDWR);
    ASSERT_GE(fd, 0);
    close(fd);
    std::ifstream in(fresh + "/journal");
    std::string first, second;
    std::getline(in, first);
    std::getline(in, second);
    EXPECT_EQ(first, "open /dev/hal_gpio fd=" + std::to_string(fd) + " flags=O_RDWR -> " +
                         std::to_string(fd));
    EXPECT_EQ(second, "close /dev/hal_gpio fd=" + std::to_string(fd) + " -> 0");
}
