// Runs every benchmark line through this engine and through libcli and prints
// one table: nanoseconds per line for each and their ratio. Output of both
// goes to /dev/null through a large stdio buffer, so that write calls stay out
// of the figures.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "bench_tree.h"

#ifndef BENCH_HAVE_LIBCLI
bool bench_libcli_build()
{
    return false;
}
void bench_libcli_run(const char *) {}
double bench_libcli_help_ns(const char *)
{
    return 0;
}
#endif

namespace {

char g_acOutBuf[1 << 16];

// Best of several rounds of about 20 ms each: the least disturbed figure.
double bench_ns_per_line(void (*pfRun)(const char *), const char *pcLine)
{
    using Clock = std::chrono::steady_clock;
    long lIters = 1000;
    for (;;) {
        auto tStart = Clock::now();
        for (long i = 0; i < lIters; i++) {
            pfRun(pcLine);
        }
        if (Clock::now() - tStart > std::chrono::milliseconds(20)) {
            break;
        }
        lIters *= 2;
    }
    double dBest = 1e300;
    for (int iRound = 0; iRound < 7; iRound++) {
        auto tStart = Clock::now();
        for (long i = 0; i < lIters; i++) {
            pfRun(pcLine);
        }
        std::chrono::duration<double, std::nano> dNs = Clock::now() - tStart;
        dBest = std::min(dBest, dNs.count() / static_cast<double>(lIters));
    }
    return dBest;
}

double bench_libcli_ns(const BenchCase &stCase)
{
    if (stCase.enLibcli == BENCH_LIBCLI_RUN) {
        return bench_ns_per_line(bench_libcli_run, stCase.pcLine);
    }
    return bench_libcli_help_ns(stCase.pcLine);
}

}  // namespace

// Optional arguments, for profiling: a part of a case's name, then
// "engine" to leave libcli out.
int main(int argc, char **argv)
{
    const char *pcOnly = argc > 1 ? argv[1] : "";
    bool bEngineOnly = argc > 2 && strcmp(argv[2], "engine") == 0;
    setvbuf(stdout, g_acOutBuf, _IOFBF, sizeof(g_acOutBuf));
    int iTable = dup(STDOUT_FILENO);
    FILE *pstTable = fdopen(iTable, "w");
    int iNull = open("/dev/null", O_WRONLY);
    if (pstTable == nullptr || iNull < 0 || dup2(iNull, STDOUT_FILENO) < 0) {
        perror("bench");
        return 1;
    }
    close(iNull);
    bench_engine_build();
    bool bLibcli = !bEngineOnly && bench_libcli_build();
    fprintf(pstTable, "%-22s %12s %12s %8s\n", "case", "engine ns", "libcli ns", "ratio");
    for (const BenchCase &stCase : bench_cases()) {
        if (strstr(stCase.pcName, pcOnly) == nullptr) {
            continue;
        }
        double dEngine = bench_ns_per_line(bench_engine_run, stCase.pcLine);
        fprintf(pstTable, "%-22s %12.0f", stCase.pcName, dEngine);
        if (bLibcli && stCase.enLibcli != BENCH_LIBCLI_NONE) {
            double dLibcli = bench_libcli_ns(stCase);
            fprintf(pstTable, " %12.0f %7.1fx\n", dLibcli, dLibcli / dEngine);
        } else {
            fprintf(pstTable, " %12s %8s\n", "-", "-");
        }
        fflush(pstTable);
    }
    fflush(stdout);
    fclose(pstTable);
    return 0;
}
