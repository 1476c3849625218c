// The benchmark's command tree and its lines, shared by the engines under
// comparison. The tree is shaped like the whole tool's: 27 modules' rules,
// 113 paths of 2 to 10 words, keywords and integer/string slots.
#pragma once
#include <cstdint>
#include <vector>

// One module per entry; "#I" is an integer slot (its validator accepts -100
// to 100), "#S" a string slot.
inline const std::vector<std::vector<const char *>> &bench_modules()
{
    static const std::vector<std::vector<const char *>> s_vecModules = {
        {"set ip #I #S", "get ip #I", "set serverip #S", "get serverip"},
        {"set mac #I #S", "get mac #I", "test mac check #I"},
        {"test ethernet ping #I #S #I", "test ethernet ping all #S", "test fiber ping #I #S #I",
         "test fiber ping all #S"},
        {"test ethernet link #I", "test ethernet link all", "test fiber link #I",
         "test fiber link all"},
        {"test ethernet loopback #I #I #I #I", "test ethernet loopback all #I #I",
         "test fiber loopback #I #I #I #I", "test fiber loopback all #I #I",
         "test ethernet loopback #I #I #I #I #I #I"},
        {"test ethernet mode #I #S #S", "test ethernet mode get #I", "test fiber mode #I #S #S",
         "test fiber mode get #I"},
        {"test serial RS232 loopback #I #I #I #I", "test serial RS485 loopback #I #I #I #I",
         "test serial RS422 loopback #I #I #I #I", "test serial RS232 baudrate #I #I",
         "test serial RS485 baudrate #I #I", "test serial RS232 loopback #I #I #I #I #I #I"},
        {"test gps check #I", "test gps baudrate #I", "test gps info"},
        {"test harddisk present #S", "test harddisk present all", "test harddisk speed #S #I",
         "test harddisk smart #S", "test harddisk rw #S #I #I"},
        {"test esata present", "test esata speed #I", "test esata rw #I #I"},
        {"test usb present #I", "test usb present all", "test usb rw #I #I", "test usb speed #I"},
        {"test clear harddisk #S", "test clear flash #S", "test clear env",
         "test format harddisk #S"},
        {"test ram check", "test ram size #I", "test ram autotest #S", "test ram result"},
        {"test chipcheck #S", "test chipcheck all", "test chipreset #S", "test chipcheck #S #I #I"},
        {"test mainboard temperature #I #I", "test netboard temperature #I #I",
         "test heat #S status", "test heat #S ctrl #S", "test mainboard temperature #I #I #I"},
        {"test led #S #S", "test led all #S", "test led flick #S #I", "test led flick stop"},
        {"test button reset", "test button reset #I", "test button powerkey",
         "test button powerkey #I"},
        {"test watchdog enable", "test watchdog disable", "test watchdog feed #I",
         "test watchdog status"},
        {"test alarm #I #I", "test alarm all", "test alarm in #I", "test alarm out #I #S"},
        {"test power status", "test power #I status", "test power all"},
        {"test software version", "test software kill #S", "test software start #S",
         "test software check #S"},
        {"test pcie status", "test pcie #I status", "test pcie speed #I #I"},
        {"test x4tox2 set #I", "test x4tox2 get", "test x4tox2 reset #I #I"},
        {"test edid read #I", "test edid check #I #S", "test cpuinfo", "test cpuinfo freq"},
        {"set rtc date #S", "set rtc time #S", "get rtc date", "get rtc time", "test rtc check #I",
         "set timezone #S", "get timezone"},
        {"runtime set #I", "runtime get", "runtime clear", "runtime check #I #I"},
        {"download manuinfo #S", "upload manuinfo #S", "display manuinfo", "check manuinfo #S",
         "download logo #S", "upload logo #S", "check logo #S #S"},
    };
    return s_vecModules;
}

// How libcli takes the same line: run as a command, typed into its loop
// (where alone it answers "?"), or not at all (it completes only keys typed
// at its prompt, never a word inside a line).
enum BenchLibcli { BENCH_LIBCLI_NONE, BENCH_LIBCLI_RUN, BENCH_LIBCLI_HELP };

struct BenchCase {
    const char *pcName;
    const char *pcLine;
    BenchLibcli enLibcli;
};

inline const std::vector<BenchCase> &bench_cases()
{
    static const std::vector<BenchCase> s_vecCases = {
        {"5-word line", "test mainboard temperature -10 60", BENCH_LIBCLI_RUN},
        {"abbreviated line", "t mai temp 20 30", BENCH_LIBCLI_RUN},
        {"2-word line", "get serverip", BENCH_LIBCLI_RUN},
        {"4-word string line", "test harddisk smart sda", BENCH_LIBCLI_RUN},
        {"10-word line", "test serial RS232 loopback 0 64 10 1 2 3", BENCH_LIBCLI_RUN},
        {"wrong word", "test mainboard temprature 1 2", BENCH_LIBCLI_RUN},
        {"validator refuses", "test mainboard temperature 101 2", BENCH_LIBCLI_RUN},
        {"help \"test ?\"", "test ?", BENCH_LIBCLI_HELP},
        {"help deep level", "test serial RS232 ?", BENCH_LIBCLI_HELP},
        {"help prefix", "test se?", BENCH_LIBCLI_HELP},
        {"complete word", "test mai\t", BENCH_LIBCLI_NONE},
    };
    return s_vecCases;
}

// Each engine under comparison: builds the tree once, then runs one line.
void bench_engine_build();
void bench_engine_run(const char *pcLine);
bool bench_libcli_build();  // false when the benchmark was built without libcli
void bench_libcli_run(const char *pcLine);
double bench_libcli_help_ns(const char *pcLine);  // the line ends in "?"
