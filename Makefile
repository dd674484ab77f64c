# Entry points. Both `make demo` and `make test` install what the project needs (Debian
# packages, through apt-get, when they are missing), build, and run.

BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
JOBS       ?= $(shell nproc)
SAMPLE     := $(BUILD)/sample-ipod
DEMO_COPY  := $(BUILD)/demo-music
FUZZ_SECONDS ?= 600
DEB_BUILD  ?= build-deb
PREFIX     ?= /usr/local

PACKAGES      := build-essential cmake pkg-config libplist-dev libpng-dev nlohmann-json3-dev \
                 libglib2.0-dev libudev-dev libsqlite3-dev libgtest-dev libgmock-dev libbenchmark-dev \
                 dosfstools fusefat util-linux mount libimobiledevice-dev libusbmuxd-dev tree \
                 pybind11-dev python3-dev python3-pytest doxygen dpkg-dev file lintian \
                 libfuse3-dev fuse3 \
                 libturbojpeg0-dev zlib1g-dev \
                 qt6-base-dev qt6-qpa-plugins xvfb xauth appstream desktop-file-utils \
                 fonts-wqy-microhei
FUZZ_PACKAGES := clang libclang-rt-14-dev
# Only for `make bench`: libgpod is the peer the whole-process figures are compared with, and
# GNU time measures peak memory.
BENCH_PACKAGES := libgpod-dev time

.PHONY: all deps build demo test check-layers test-release test-asan test-deb mutate install deb docs bench bench-deps fuzz fuzz-deps clean

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

test: check-layers test-release test-deb test-asan

# The include arrows between the folders of ZQCore/: none may run upward (see the script).
check-layers:
	scripts/check-layers.py

test-release: build
	cd $(BUILD) && ctest --output-on-failure -j$(JOBS)

test-asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DZQ_SANITIZE=ON -DZQ_BENCH=OFF
	cmake --build $(ASAN_BUILD) -j$(JOBS) --target zqcore_tests zqcore_afc_tests zqpod zq-make-sample
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
		ctest --output-on-failure -j$(JOBS)

# The library, headers, zqcore.pc, the CMake package, zqpod and its manual page, and the Python
# module under PREFIX (DESTDIR=... for a staged copy).
install: build
	cmake -S . -B $(BUILD) -DCMAKE_INSTALL_PREFIX=$(PREFIX)
	DESTDIR=$(DESTDIR) cmake --install $(BUILD)

# The Debian packages (libzqcore0, libzqcore-dev, zqpod, python3-zqcore, zqpod-gui) in $(DEB_BUILD), built
# with prefix /usr in a folder of their own and checked with lintian (accepted findings, with
# the reasons: packaging/lintian-suppressed). Compiled with Debian's own build flags (hardening:
# fortified functions, stack protector, RELRO).
deb: DEB_CXXFLAGS = $(shell dpkg-buildflags --get CPPFLAGS) $(shell dpkg-buildflags --get CXXFLAGS)
deb: DEB_LDFLAGS = $(shell dpkg-buildflags --get LDFLAGS)
deb: deps
	cmake -S . -B $(DEB_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
		-DZQ_TESTS=OFF -DZQ_BENCH=OFF -DCMAKE_SKIP_INSTALL_ALL_DEPENDENCY=ON \
		-DCMAKE_CXX_FLAGS="$(DEB_CXXFLAGS)" -DCMAKE_EXE_LINKER_FLAGS="$(DEB_LDFLAGS)" \
		-DCMAKE_SHARED_LINKER_FLAGS="$(DEB_LDFLAGS)" -DCMAKE_MODULE_LINKER_FLAGS="$(DEB_LDFLAGS)"
	cmake --build $(DEB_BUILD) -j$(JOBS) --target ZQCore zqpod zqpod-man-gz zqcore_python zqcore-debian-docs zqpod-gui
	rm -f $(DEB_BUILD)/*.deb
	cd $(DEB_BUILD) && cpack -G DEB
	lintian --info --suppress-tags-from-file packaging/lintian-suppressed --fail-on error,warning $(DEB_BUILD)/*.deb

# The packages' files and dependencies; then installed with dpkg --root into an empty root, the
# example built against them there, zqpod and the Python module run from there.
test-deb: deb build
	tests/packaging/deb_test.sh . $(BUILD) $(DEB_BUILD)

# The API reference from the public headers, in $(BUILD)/docs/html.
docs: deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) --target docs
	@echo "API reference: $(BUILD)/docs/html/index.html"

# How many deliberate faults the tests catch (scripts/mutate.py lists them); MUTATIONS picks some
# by number or label word, e.g. `make mutate MUTATIONS="3 sqlite"`. Long: one rebuild per fault.
mutate: deps
	scripts/mutate.sh --jobs $(JOBS) $(MUTATIONS)

bench-deps:
	@scripts/install-deps.sh $(PACKAGES) $(BENCH_PACKAGES)

# The Google Benchmark programs, then whole processes side by side with their peers (libgpod,
# libimobiledevice's read loop). BEFORE=DIR adds an earlier zqpod's figures (see the script).
bench: bench-deps
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j$(JOBS)
	@for b in $(BUILD)/bench_*; do [ -x "$$b" ] && [ -f "$$b" ] || continue; echo "== $$b"; (cd $(BUILD) && ./$$(basename $$b)); done
	bench/whole-process.sh $(BUILD) $(BEFORE)

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
	$(FUZZ_BUILD)/fuzz_itunescdb -max_total_time=$(FUZZ_SECONDS) -max_len=65536 -rss_limit_mb=2048 \
		-print_final_stats=1 $(FUZZ_BUILD)/corpus/itunescdb
	mkdir -p $(FUZZ_BUILD)/corpus/medialibrary
	$(FUZZ_BUILD)/fuzz_medialibrary -max_total_time=$(FUZZ_SECONDS) -max_len=16384 -rss_limit_mb=2048 \
		-print_final_stats=1 $(FUZZ_BUILD)/corpus/medialibrary

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) $(DEB_BUILD)
