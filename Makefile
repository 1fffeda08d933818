# Two commands for a new user: `make demo` and `make test`.
# Both install the missing Debian packages first (as root).

PACKAGES := qt6-base-dev qt6-5compat-dev qt6-svg-dev fonts-dejavu-core libgtest-dev cmake g++ make clang libclang-rt-14-dev \
            valgrind time gcovr libhdf5-dev python3-h5py man-db \
            libzstd-dev zlib1g-dev liblzma-dev zstd xz-utils gzip
BUILD := build
SANITIZE_BUILD := build-sanitize
THREAD_BUILD := build-thread
FUZZ_BUILD := build-fuzz
COVERAGE_BUILD := build-coverage
JOBS ?= $(shell nproc)

.PHONY: all deps build demo package test test-plain test-valgrind test-sanitize test-thread bench fuzz \
        mutate mutate-random coverage clean format

all: build

deps:
	@missing=""; \
	for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'ok installed' || missing="$$missing $$p"; \
	done; \
	if [ -n "$$missing" ]; then \
	  echo "Installing:$$missing"; \
	  apt-get update && DEBIAN_FRONTEND=noninteractive apt-get install -y $$missing; \
	fi

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	@tools/run-demo.sh $(BUILD)

# A Debian package of the tools, their man pages and the library (build/twiss_*.deb).
package: build
	cd $(BUILD) && cpack

test: deps test-plain test-valgrind test-sanitize test-thread

test-plain: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The end-to-end runs of twiss once more, each run of the tool under Valgrind's memcheck,
# and the main runs of twiss-optics (a table, its record, a merge of both kinds of moment
# files, the bundled example); the sanitized build runs every test of both tools.
VALGRIND_OPTICS := OpticsToolTest.tableOfTwoTracksByHand:OpticsToolTest.theRecordHoldsTheSameNumbers:$\
                   SplitRunTest.binaryAndTextMomentFilesMergeAlike:OpticsToolTest.bundledExample*
test-valgrind: build
	export TWISS_WRAPPER="valgrind -q --error-exitcode=99 --leak-check=no"; \
	  $(BUILD)/bin/CommandLineTest --gtest_brief=1 & a=$$!; \
	  $(BUILD)/bin/RunTest --gtest_brief=1 & b=$$!; \
	  $(BUILD)/bin/OpticsToolTest --gtest_brief=1 --gtest_filter=$(VALGRIND_OPTICS) & c=$$!; \
	  wait $$a && wait $$b && wait $$c

# Every test but the statistical pulls over many seeds, the bit-for-bit runs through
# thousands of planes, the closed forms of beams of 200000 crossings, and the runs of
# long inputs or many threads that repeat what shorter ones test: the same code that the
# other tests run, at many times their cost.
SANITIZE_SKIP := OpticsPhysicsTest|SolenoidPhysicsTest|ManyPlanesTest|MeasureTest\.errors|$\
                 CrossingSampleTest\.(gaussian|haloErrorsAreHonest)|aBeamFollowingABentPath|$\
                 theCrossingsOneByOneGiveTheSameBytesOnAnyNumberOfThreads|$\
                 tenMegabytesOfArgumentsAreReadInTime|tenThousandSegmentsAndPlanes|$\
                 overlongLinesAreReadFromTheirHead|hugeFieldsOfOverlongLines
# One test more than processors: a sanitized test spends much of its time starting.
test-sanitize: deps
	cmake -S . -B $(SANITIZE_BUILD) -DCMAKE_BUILD_TYPE=Debug -DNEXIL_SANITIZE=ON
	cmake --build $(SANITIZE_BUILD) -j $(JOBS)
	cd $(SANITIZE_BUILD) && ctest --output-on-failure -j $$(( $(JOBS) + 1 )) -E '$(SANITIZE_SKIP)'

# The threaded parts (the block reader, the crossing tests shared between threads, the
# particle file written from them, the thread that decodes a compressed track file) under
# ThreadSanitizer; the end-to-end tests run the tools built that way, at 1 to 64 threads.
# The reader's tests of how a line megabytes long is decoded run under the other
# sanitizers only: one thread reads such a line, under the reader's lock.
# The tests of the crossings shared between threads run a second time, to give a race
# a second chance to show.
THREADED_TESTS := TrackReaderTest CrossingSelectorTest ParallelCrossingsTest ReferenceRunTest \
                  OpticsAgreementTest ThreadedRunTest ParticleFileTest TrackSourceTest \
                  CompressedTracksTest
test-thread: deps
	cmake -S . -B $(THREAD_BUILD) -DCMAKE_BUILD_TYPE=Debug -DNEXIL_SANITIZE_THREAD=ON
	cmake --build $(THREAD_BUILD) -j $(JOBS) --target $(THREADED_TESTS)
	printf '$(THREAD_BUILD)/bin/%s\n' $(THREADED_TESTS) | xargs -P $(JOBS) -I{} env {} --gtest_brief=1 \
	  --gtest_filter=-*overlongLinesAreReadFromTheirHead:*hugeFieldsOfOverlongLines
	$(THREAD_BUILD)/bin/ParallelCrossingsTest --gtest_brief=1

# Throughput of the track loop on generated data (BENCH_MB megabytes, BENCH_RUNS runs).
BENCH_MB ?= 500
BENCH_RUNS ?= 3
bench: build
	bench/run.sh $(BUILD) $(BENCH_MB) $(BENCH_RUNS)
	bench/optics.sh $(BUILD) $(BENCH_MB) $(BENCH_RUNS)
	bench/threads.sh $(BUILD) $(BENCH_MB) $(BENCH_RUNS)

# Every fuzz target for FUZZ_SECONDS seconds (libFuzzer, clang, ASan and UBSan).
FUZZ_SECONDS ?= 60
fuzz: deps
	cmake -S . -B $(FUZZ_BUILD) -DNEXIL_FUZZ=ON -DCMAKE_CXX_COMPILER=clang++ \
	  -DCMAKE_BUILD_TYPE=Debug
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	fuzz/run.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

# Line and branch coverage of the library and the tools by the whole suite (throw
# branches excluded); fails under 98 % of lines or 93 % of branches.
coverage: deps
	cmake -S . -B $(COVERAGE_BUILD) -DCMAKE_BUILD_TYPE=Debug -DNEXIL_COVERAGE=ON
	cmake --build $(COVERAGE_BUILD) -j $(JOBS)
	find $(COVERAGE_BUILD) -name '*.gcda' -delete
	cd $(COVERAGE_BUILD) && ctest -j $(JOBS) --output-on-failure
	mkdir -p $(COVERAGE_BUILD)/coverage
	gcovr -r . $(COVERAGE_BUILD) --filter 'src/' --filter 'twiss/' --filter 'optics/' \
	  --exclude-throw-branches --exclude-unreachable-branches \
	  --html-details $(COVERAGE_BUILD)/coverage/index.html --print-summary \
	  --fail-under-line 98 --fail-under-branch 93

# Every mutant of tests/mutants.txt must fail a test (a copy of the tree, about a minute each).
mutate: deps
	tools/mutate.py

# N faults drawn at random (by SEED) over src/, twiss/ and optics/, each built and
# tested as by `make mutate`; survivors that no input can tell apart are listed in
# tests/equivalent-mutants.txt.
N ?= 40
SEED ?= 1
mutate-random: deps
	tools/mutate-random.py --count $(N) --seed $(SEED)

format:
	clang-format -i include/*.h src/*.cpp twiss/*.h twiss/*.cpp optics/*.h optics/*.cpp \
	  tests/*/*.cpp tests/*/*.h tools/*.cpp tools/*.h bench/*.cpp fuzz/*.cpp fuzz/*.h

clean:
	rm -rf $(BUILD) $(SANITIZE_BUILD) $(THREAD_BUILD) $(FUZZ_BUILD) $(COVERAGE_BUILD)
