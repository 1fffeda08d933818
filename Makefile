# Two commands for a new user: `make demo` and `make test`.
# Both install the missing Debian packages first (as root).

PACKAGES := qt6-base-dev qt6-5compat-dev libgtest-dev cmake g++ make
BUILD := build
SANITIZE_BUILD := build-sanitize
JOBS ?= $(shell nproc)

.PHONY: all deps build demo test test-plain test-sanitize bench clean format

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

test: deps test-plain test-sanitize

test-plain: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-sanitize: deps
	cmake -S . -B $(SANITIZE_BUILD) -DCMAKE_BUILD_TYPE=Debug -DNEXIL_SANITIZE=ON
	cmake --build $(SANITIZE_BUILD) -j $(JOBS)
	cd $(SANITIZE_BUILD) && ctest --output-on-failure -j $(JOBS)

# Throughput of the track loop on generated data (BENCH_MB megabytes, BENCH_RUNS runs).
BENCH_MB ?= 500
BENCH_RUNS ?= 3
bench: build
	bench/run.sh $(BUILD) $(BENCH_MB) $(BENCH_RUNS)

format:
	clang-format -i include/*.h src/*.cpp twiss/*.h twiss/*.cpp tests/*.cpp tests/*.h tools/*.cpp

clean:
	rm -rf $(BUILD) $(SANITIZE_BUILD)
