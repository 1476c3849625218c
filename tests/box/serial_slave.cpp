// Runs the RS-485 slave in the box, where no command reaches it: starts it on
// ttyS<n>, lets a remote master talk to it for a while, asks for a second
// start, then sets a rate and reports how long the thread took to end.
//   serial_slave TTY SECONDS
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <thread>
#include <unistd.h>

#include "equ_cmd.h"

namespace {

int threads()
{
    int n = 0;
    DIR *d = opendir("/proc/self/task");
    for (dirent *e; d && (e = readdir(d));)
        n += e->d_name[0] != '.';
    if (d)
        closedir(d);
    return n;
}

}  // namespace

int main(int argc, char **argv)
{
    if (argc != 3)
        return 2;
    if (EQU_Serial_485Slave(static_cast<uint32_t>(atoi(argv[1]))) != 0)
        return 1;
    // Counted with the slave running: a sanitizer runtime may start a thread of its own.
    const int running = threads();
    std::this_thread::sleep_for(std::chrono::seconds(atoi(argv[2])));
    EQU_Serial_485Slave(0);  // refused while one runs
    auto t0 = std::chrono::steady_clock::now();
    EQU_Serial_SetBaudRate(9600);
    while (threads() >= running)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::chrono::duration<double, std::milli> ms = std::chrono::steady_clock::now() - t0;
    printf("\r\nstopped in %.1f ms\n", ms.count());
    return 0;
}
