# Entry points. Both `make demo` and `make test` install what the project needs (Debian
# packages, through apt-get, when they are missing), build, and run.

BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
JOBS       ?= $(shell nproc)
SAMPLE     := $(BUILD)/sample-ipod
DEMO_COPY  := $(BUILD)/demo-music
FUZZ_SECONDS ?= 600

PACKAGES      := build-essential cmake pkg-config libplist-dev libpng-dev nlohmann-json3-dev \
                 libglib2.0-dev libudev-dev libsqlite3-dev libgtest-dev libgmock-dev libbenchmark-dev \
                 dosfstools fusefat util-linux mount libimobiledevice-dev libusbmuxd-dev tree \
                 libturbojpeg0-dev
FUZZ_PACKAGES := clang libclang-rt-14-dev

.PHONY: all deps build demo test test-release test-asan bench fuzz fuzz-deps clean

all: build

deps:
	@scripts/install-deps.sh $(PACKAGES)

build: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j$(JOBS)

# The main job on the built-in sample device: its library, then its music copied off it with
# playlists and covers, then what arrived.
demo: build
	@$(BUILD)/zq-make-sample $(SAMPLE) >/dev/null
	$(BUILD)/zqpod library $(SAMPLE)
	@rm -rf $(DEMO_COPY)
	$(BUILD)/zqpod copy $(SAMPLE) $(DEMO_COPY) --playlists --art
	tree $(DEMO_COPY)

test: test-release test-asan

test-release: build
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DZQ_SANITIZE=ON -DZQ_BENCH=OFF
	cmake --build $(ASAN_BUILD) -j$(JOBS) --target zqcore_tests zqcore_afc_tests zqpod zq-make-sample
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		ctest --output-on-failure -j$(JOBS)

bench: build
	@for b in $(BUILD)/bench_*; do echo "== $$b"; $$b; done

fuzz-deps:
	@scripts/install-deps.sh $(PACKAGES) $(FUZZ_PACKAGES)

fuzz: fuzz-deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZQ_FUZZ=ON
	cmake --build $(FUZZ_BUILD) -j$(JOBS)
	mkdir -p $(FUZZ_BUILD)/corpus
	$(FUZZ_BUILD)/fuzz_seed_corpus $(FUZZ_BUILD)/corpus ../shared/samples
	$(FUZZ_BUILD)/fuzz_itunesdb -max_total_time=$(FUZZ_SECONDS) -max_len=131072 -rss_limit_mb=2048 \
		-print_final_stats=1 $(FUZZ_BUILD)/corpus/itunesdb
	$(FUZZ_BUILD)/fuzz_artworkdb -max_total_time=$(FUZZ_SECONDS) -max_len=65536 -rss_limit_mb=2048 \
		-print_final_stats=1 $(FUZZ_BUILD)/corpus/artworkdb
	mkdir -p $(FUZZ_BUILD)/corpus/medialibrary
	$(FUZZ_BUILD)/fuzz_medialibrary -max_total_time=$(FUZZ_SECONDS) -max_len=16384 -rss_limit_mb=2048 \
		-print_final_stats=1 $(FUZZ_BUILD)/corpus/medialibrary

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
