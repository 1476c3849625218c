// Runs every benchmark line through this engine and through libcli and prints
// one table: nanoseconds per line for each and their ratio. Output of both
// goes to /dev/null through a large stdio buffer, so that write calls stay out
// of the figures; the table goes to the real stdout.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ext/stdio_filebuf.h>
#include <fcntl.h>
#include <map>
#include <ostream>
#include <string>
#include <unistd.h>
#include <vector>

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
char g_acMinTime[] = "--benchmark_min_time=0.02";
char g_acRepetitions[] = "--benchmark_repetitions=7";

void bench_line(benchmark::State &state, void (*pfRun)(const char *), const char *pcLine)
{
    for (auto _ : state) {
        pfRun(pcLine);
    }
}

// libcli's "?" is timed as the difference of two rounds of its own loop, which
// does its own best-of; one iteration reports that figure. Noise can make the
// difference negative, which the timer would not take.
void bench_libcli_help(benchmark::State &state, const char *pcLine)
{
    for (auto _ : state) {
        state.SetIterationTime(std::max(0.0, bench_libcli_help_ns(pcLine)) * 1e-9);
    }
}

void bench_register(const BenchCase &stCase, bool bLibcli)
{
    std::string strName(stCase.pcName);
    benchmark::RegisterBenchmark(("engine/" + strName).c_str(), bench_line, bench_engine_run,
                                 stCase.pcLine);
    if (!bLibcli || stCase.enLibcli == BENCH_LIBCLI_NONE) {
        return;
    }
    if (stCase.enLibcli == BENCH_LIBCLI_RUN) {
        benchmark::RegisterBenchmark(("libcli/" + strName).c_str(), bench_line, bench_libcli_run,
                                     stCase.pcLine);
        return;
    }
    benchmark::RegisterBenchmark(("libcli/" + strName).c_str(), bench_libcli_help, stCase.pcLine)
        ->UseManualTime()
        ->Iterations(1)
        ->Repetitions(1);
}

// Keeps the least disturbed repetition of each benchmark and prints the table
// once all have run, to the reporter's output stream.
class TableReporter : public benchmark::BenchmarkReporter {
  public:
    bool ReportContext(const Context &stContext) override
    {
        // The warnings about CPU scaling and debug builds bear on the figures.
        PrintBasicContext(&GetErrorStream(), stContext);
        return true;
    }

    void ReportRuns(const std::vector<Run> &vecRuns) override
    {
        for (const Run &stRun : vecRuns) {
            if (stRun.run_type != Run::RT_Iteration || stRun.error_occurred ||
                stRun.iterations == 0) {
                continue;
            }
            double dNs = stRun.real_accumulated_time * 1e9 / static_cast<double>(stRun.iterations);
            auto [it, bNew] = m_mapBestNs.emplace(stRun.run_name.function_name, dNs);
            if (!bNew) {
                it->second = std::min(it->second, dNs);
            }
        }
    }

    void Finalize() override;

  private:
    std::string best_ns(const std::string &strName) const
    {
        auto it = m_mapBestNs.find(strName);
        return it == m_mapBestNs.end() ? "-" : std::to_string(std::lround(it->second));
    }

    std::string ratio(const std::string &strEngine, const std::string &strLibcli) const
    {
        auto itEngine = m_mapBestNs.find(strEngine);
        auto itLibcli = m_mapBestNs.find(strLibcli);
        if (itEngine == m_mapBestNs.end() || itLibcli == m_mapBestNs.end() ||
            itEngine->second <= 0) {
            return "-";
        }
        char acRatio[32];
        snprintf(acRatio, sizeof(acRatio), "%.1fx", itLibcli->second / itEngine->second);
        return acRatio;
    }

    void row(const std::string &strCase, const std::string &strEngine, const std::string &strLibcli,
             const std::string &strRatio)
    {
        char acRow[128];
        snprintf(acRow, sizeof(acRow), "%-22s %12s %12s %8s\n", strCase.c_str(), strEngine.c_str(),
                 strLibcli.c_str(), strRatio.c_str());
        GetOutputStream() << acRow;
    }

    std::map<std::string, double> m_mapBestNs;
};

// Rows in the order of the cases; a case the filter left out has no row.
void TableReporter::Finalize()
{
    row("case", "engine ns", "libcli ns", "ratio");
    for (const BenchCase &stCase : bench_cases()) {
        std::string strEngine = std::string("engine/") + stCase.pcName;
        std::string strLibcli = std::string("libcli/") + stCase.pcName;
        if (m_mapBestNs.count(strEngine) == 0 && m_mapBestNs.count(strLibcli) == 0) {
            continue;
        }
        row(stCase.pcName, best_ns(strEngine), best_ns(strLibcli), ratio(strEngine, strLibcli));
    }
    GetOutputStream().flush();
}

// The engines print to stdout: it goes to /dev/null. Returns a copy of the
// real one for the table (and for Google Benchmark's own listings).
int bench_redirect_stdout()
{
    setvbuf(stdout, g_acOutBuf, _IOFBF, sizeof(g_acOutBuf));
    int iTable = dup(STDOUT_FILENO);
    int iNull = open("/dev/null", O_WRONLY);
    if (iTable < 0 || iNull < 0 || dup2(iNull, STDOUT_FILENO) < 0) {
        perror("bench");
        return -1;
    }
    close(iNull);
    return iTable;
}

}  // namespace

// Best of 7 short runs unless the command line says otherwise: the machine is
// shared, and the least disturbed run is the figure worth comparing. Any
// Google Benchmark option applies, e.g. --benchmark_filter=engine/ to profile
// this engine alone.
int main(int argc, char **argv)
{
    // Ahead of the user's options, so that theirs win.
    std::vector<char *> vecArgs{argv[0], g_acMinTime, g_acRepetitions};
    vecArgs.insert(vecArgs.end(), argv + 1, argv + argc);
    int iArgs = static_cast<int>(vecArgs.size());
    benchmark::Initialize(&iArgs, vecArgs.data());
    if (benchmark::ReportUnrecognizedArguments(iArgs, vecArgs.data())) {
        return 1;
    }
    int iTable = bench_redirect_stdout();
    if (iTable < 0) {
        return 1;
    }
    __gnu_cxx::stdio_filebuf<char> clTableBuf(iTable, std::ios::out);
    std::ostream clTableOut(&clTableBuf);
    bench_engine_build();
    bool bLibcli = bench_libcli_build();
    for (const BenchCase &stCase : bench_cases()) {
        bench_register(stCase, bLibcli);
    }
    TableReporter clTable;
    clTable.SetOutputStream(&clTableOut);
    benchmark::RunSpecifiedBenchmarks(&clTable);
    benchmark::Shutdown();
    fflush(stdout);
    return 0;
}
