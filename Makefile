# make          build the tool, the simulator, the tests and the benchmark
# make sim      build and run the tool on the simulated board (ARGS="-d" passes options to cli;
#               STATE=DIR keeps the board's state there, default build/sim-state;
#               SCENARIO="NAME ..." applies presets of sim/scenarios/)
# make docs     write docs/commands.md, the command reference, from the tool's command tree
#               and the examples' output on a simulated board (tools/cmdref-examples.txt)
# make format   reformat every C++ source (.clang-format); make format-check fails on any
#               file it would change
# make check    install what is missing, check the format, build, run every test (also under
#               ASan/UBSan, the threads under TSan, short fuzz runs, and the end-to-end tests
#               again against the aarch64 build under qemu-user)
# make tsan     the unit tests and the threads' end-to-end tests (LED worker, RS-485 slave) under TSan
# make fuzz     the console and engine fuzz targets in the box, FUZZ_SECONDS (180) each
#               (FUZZ_TARGETS=fuzz_engine to run one)
# make coverage line and branch coverage of src/ over the unit and end-to-end tests (HTML report)
# make aarch64  cross-build for the board
# make e2e-aarch64  the end-to-end tests against the aarch64 build, under qemu-user
# make install  install the board's files from the aarch64 build (DESTDIR=... as usual)
# make bench    build a Release tree and run the engine benchmark (against libcli when installed;
#               BENCH_ARGS="--benchmark_filter=engine/" passes Google Benchmark options)
# make bench-harness  the factory plan on 1, 4, 16 and 64 simulated boards at once
#               (SCALE_ARGS="--real-time --sizes 1,64" passes bench/harness_scale options)

BUILD      ?= build
BUILD_SAN  ?= build-san
BUILD_TSAN ?= build-tsan
BUILD_FUZZ ?= build-fuzz
BUILD_COV  ?= build-coverage
FUZZ_SECONDS ?= 180
BUILD_ARM  ?= build-aarch64
BUILD_REL  ?= build-release
JOBS       ?= $(shell nproc)
PYTHON     ?= /usr/bin/python3
# The end-to-end tests run on this many workers (pytest-xdist): each box is
# independent, and most of a test's time is the box's start.
E2E_JOBS   ?= $(JOBS)
PYTEST     = $(PYTHON) -m pytest -q -n $(E2E_JOBS)
ARGS       ?=
STATE      ?= $(BUILD)/sim-state
SCENARIO   ?=
BENCH_ARGS ?=
SCALE_ARGS ?=

DESTDIR    ?=

.PHONY: format-check all deps bench-harness sim docs docs-check cmdref check unit e2e e2e-aarch64 sanitize tsan fuzz coverage aarch64 install bench format clean harness

all:
	@test -f $(BUILD)/CMakeCache.txt || cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS)

deps:
	@tools/install-deps

# The board's state is kept between runs (boardsim fills a new directory
# from the defaults); saying where lets the operator inspect and reuse it.
sim: deps all
	@mkdir -p $(STATE) && echo "make sim: board state in $(abspath $(STATE)) (kept)" >&2
	sim/boardsim --state $(STATE) $(foreach s,$(SCENARIO),--scenario $(s)) -- $(ARGS)

# The command reference comes from the command tree the tool builds and from
# what each example printed on a simulated board (tools/cmdref-examples.txt);
# the check fails when the checked-in copy is not what both make now.
docs: cmdref
	$(BUILD)/cmdref . docs/commands.md $(BUILD)/cmdref-examples.out

docs-check: cmdref
	$(BUILD)/cmdref . $(BUILD)/commands.md $(BUILD)/cmdref-examples.out
	@diff -u docs/commands.md $(BUILD)/commands.md || \
	    { echo "docs/commands.md is stale: run make docs" >&2; exit 1; }

cmdref: all
	CLI_BUILD_DIR=$(abspath $(BUILD)) $(PYTHON) tools/cmdref-capture $(BUILD)/cmdref-examples.out

unit: all
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The consoles' output is kept, to report which of the tool's messages the run reached.
e2e: all
	rm -f $(BUILD)/console.log*
	CLI_BUILD_DIR=$(abspath $(BUILD)) CLI_CONSOLE_LOG=$(abspath $(BUILD))/console.log \
	    $(PYTEST) tests/e2e tests/pkg
	tools/msgcov $(BUILD)/console.log*

# The factory harness's own tests: its client over each transport, on the box.
harness: all
	CLI_BUILD_DIR=$(abspath $(BUILD)) $(PYTEST) tests/harness

# The same tests, the tool being the board's binary under qemu-user; the PC
# build still provides the box's PC side.
e2e-aarch64: all aarch64
	CLI_BUILD_DIR=$(abspath $(BUILD)) CLI_TOOL_BUILD_DIR=$(abspath $(BUILD_ARM)) \
	    $(PYTEST) tests/e2e tests/pkg

sanitize:
	@test -f $(BUILD_SAN)/CMakeCache.txt || cmake -S . -B $(BUILD_SAN) -DCMAKE_BUILD_TYPE=Debug -DCLI_SANITIZE=ON
	cmake --build $(BUILD_SAN) -j $(JOBS)
	cd $(BUILD_SAN) && ASAN_OPTIONS=detect_leaks=1 ctest --output-on-failure -j $(JOBS)
	CLI_BUILD_DIR=$(abspath $(BUILD_SAN)) $(PYTEST) tests/e2e

tsan:
	@test -f $(BUILD_TSAN)/CMakeCache.txt || cmake -S . -B $(BUILD_TSAN) -DCMAKE_BUILD_TYPE=Debug -DCLI_TSAN=ON
	cmake --build $(BUILD_TSAN) -j $(JOBS)
	cd $(BUILD_TSAN) && ctest --output-on-failure -j $(JOBS)
	CLI_BUILD_DIR=$(abspath $(BUILD_TSAN)) $(PYTEST) tests/e2e/test_led.py tests/e2e/test_serial.py

# clang's libFuzzer, with ASan and UBSan.
fuzz:
	@test -f $(BUILD_FUZZ)/CMakeCache.txt || CC=clang CXX=clang++ cmake -S . -B $(BUILD_FUZZ) \
	      -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCLI_SANITIZE=ON -DCLI_FUZZ=ON
	cmake --build $(BUILD_FUZZ) -j $(JOBS) --target fuzz_engine fuzz_console boardsim_preload
	tests/fuzz/run $(BUILD_FUZZ) $(FUZZ_SECONDS) $(FUZZ_TARGETS)

# --quiet would also silence the summary, so that one call goes without it.
LCOV_BRANCHES = lcov --rc lcov_branch_coverage=1
LCOV = $(LCOV_BRANCHES) --quiet
# A failing test still leaves its counters: the report is made either way.
coverage: deps
	@test -f $(BUILD_COV)/CMakeCache.txt || cmake -S . -B $(BUILD_COV) -DCMAKE_BUILD_TYPE=Debug -DCLI_COVERAGE=ON
	cmake --build $(BUILD_COV) -j $(JOBS)
	find $(BUILD_COV) -name '*.gcda' -delete
	cd $(BUILD_COV) && ctest -j $(JOBS) >/dev/null
	-BOX_BUILD_RW=1 CLI_BUILD_DIR=$(abspath $(BUILD_COV)) $(PYTEST) tests/e2e
	$(LCOV) --capture --directory $(BUILD_COV) --output-file $(BUILD_COV)/all.info
	$(LCOV) --extract $(BUILD_COV)/all.info '$(abspath src)/*' --output-file $(BUILD_COV)/src.info
	genhtml --quiet --branch-coverage $(BUILD_COV)/src.info --output-directory $(BUILD_COV)/html
	$(LCOV_BRANCHES) --summary $(BUILD_COV)/src.info
	@echo "report: $(BUILD_COV)/html/index.html"

aarch64:
	@test -f $(BUILD_ARM)/CMakeCache.txt || cmake -S . -B $(BUILD_ARM) \
	      -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	      -DCMAKE_INSTALL_PREFIX=/usr
	cmake --build $(BUILD_ARM) -j $(JOBS)
	@file $(BUILD_ARM)/cli 2>/dev/null || true

install: aarch64
	DESTDIR=$(DESTDIR) cmake --install $(BUILD_ARM) --strip

check: deps
	$(MAKE) format-check
	$(MAKE) docs-check
	$(MAKE) unit
	$(MAKE) e2e
	$(MAKE) harness
	$(MAKE) sanitize
	$(MAKE) tsan
	$(MAKE) fuzz FUZZ_SECONDS=30
	$(MAKE) e2e-aarch64

# Timings mean something only with the optimiser on.
bench-harness: all
	CLI_BUILD_DIR=$(abspath $(BUILD)) bench/harness_scale $(SCALE_ARGS)

bench: deps
	@test -f $(BUILD_REL)/CMakeCache.txt || cmake -S . -B $(BUILD_REL) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD_REL) -j $(JOBS) --target cli_bench
	$(BUILD_REL)/bench/cli_bench $(BENCH_ARGS)

# The house style (.clang-format) over every C++ source of the project.
FORMAT_FILES = $(shell git ls-files '*.cpp' '*.h')
format:
	clang-format -i $(FORMAT_FILES)

# Fails on the first file that `make format` would change.
format-check:
	@clang-format --dry-run --Werror $(FORMAT_FILES)

clean:
	rm -rf $(BUILD) $(BUILD_SAN) $(BUILD_TSAN) $(BUILD_FUZZ) $(BUILD_COV) $(BUILD_ARM) $(BUILD_REL)
