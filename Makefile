# Two builds: release (-O3, LTO) and sanitize (AddressSanitizer + UBSan,
# assertions and the make/unmake invariant check on). `make test` runs the
# whole suite against both, then a short run of each fuzz target (clang) and
# a few games against other engines.
BUILD   ?= build
JOBS    ?= $(shell nproc 2>/dev/null || echo 2)
RELEASE := $(BUILD)/release
SANITIZE := $(BUILD)/sanitize

.PHONY: all run test repin test-v3 setup-test setup-js lint-js release release-pgo sanitize fuzz soak tune tune-serve tune-scheduler tune-worker perft-long bench-perft bench-eval bench-search bench-match check-valgrind clean deb test-deb

all: release

# What each build needs and the machine lacks comes from Debian's packages.
release:
	@bash tools/setup.sh build
	cmake -S . -B $(RELEASE) -DCMAKE_BUILD_TYPE=Release >/dev/null
	cmake --build $(RELEASE) -j $(JOBS)

sanitize:
	@bash tools/setup.sh build
	cmake -S . -B $(SANITIZE) -DCMAKE_BUILD_TYPE=Debug -DVELKOR_SANITIZE=ON >/dev/null
	cmake --build $(SANITIZE) -j $(JOBS)

# Profile-guided release: an instrumented build runs bench and two perfts,
# then the release is built again from that profile (build/pgo/velkor). The
# profile lives in the build folder and is made anew each time.
PGO := $(BUILD)/pgo
release-pgo:
	rm -rf $(PGO)
	cmake -S . -B $(PGO)/gen -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF \
		-DCMAKE_CXX_FLAGS="-fprofile-generate=$(abspath $(PGO))/data -fprofile-prefix-path=$(abspath $(PGO))/gen -fprofile-update=single" >/dev/null
	cmake --build $(PGO)/gen -j $(JOBS) --target velkor
	printf 'bench\n' | $(PGO)/gen/velkor >/dev/null
	printf 'position startpos\nperft 5\nposition fen r3k2r/p1ppqpb1/bn2pnp1/3PN3/1p2P3/2N2Q1p/PPPBBPPP/R3K2R w KQkq - 0 1\nperft 4\nquit\n' | $(PGO)/gen/velkor >/dev/null
	cmake -S . -B $(PGO)/use -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF \
		-DCMAKE_CXX_FLAGS="-fprofile-use=$(abspath $(PGO))/data -fprofile-prefix-path=$(abspath $(PGO))/use -fprofile-partial-training" >/dev/null
	cmake --build $(PGO)/use -j $(JOBS) --target velkor
	cp $(PGO)/use/velkor $(PGO)/velkor

setup-test:
	@bash tools/setup.sh test

# The project's JavaScript, one npm workspace (the page, the match driver,
# the client, the linter and the client that drives Debian's chromium),
# pinned in package-lock.json; installed again when the lock changes.
setup-js:
	@bash tools/setup.sh node
	@[ node_modules/.package-lock.json -nt package-lock.json ] || npm ci --no-audit --no-fund --loglevel=error

lint-js: setup-js
	npx --no-install eslint .

# The engine alone, without the test programs.
run:
	@bash tools/setup.sh build
	cmake -S . -B $(RELEASE) -DCMAKE_BUILD_TYPE=Release >/dev/null
	cmake --build $(RELEASE) -j $(JOBS) --target velkor
	@$(RELEASE)/velkor

FUZZ_SMOKE ?= 15

test: setup-test release sanitize
	cd $(RELEASE) && ctest --output-on-failure -j $(JOBS)
	cd $(SANITIZE) && ctest --output-on-failure -j $(JOBS)
	@$(MAKE) --no-print-directory test-v3 test-arm64
	bash tools/match/setup.sh
	node --test tools/match/tests/
	@$(MAKE) --no-print-directory lint-js test-web test-npm
	git ls-files 'src/*.cpp' 'src/*.h' 'tests/*.cpp' 'tests/*.h' 'tools/*.cpp' 'bench/*.cpp' | xargs clang-format-14 --style=file --dry-run --Werror
	/usr/bin/python3 -m pyflakes tools/tune tools/repin.py bench/match.py
# The tuner's tests, headless chromium on its campaign page among them (after lint-js's npm ci).
	cd tools/tune && VELKOR_ENGINE=$(abspath $(RELEASE))/velkor /usr/bin/python3 -m pytest -q
	bash tests/fuzz/run.sh $(FUZZ_SMOKE)
	node tools/match/match.mjs --engine $(RELEASE)/velkor --games 4 --tc 2+0.02 --concurrency 2 \
		--pgn $(BUILD)/match/smoke.pgn --seed 1

# Every value the tests pin (evaluation and search references, the
# transcripts' answers, the battery's counts, the bench count) rewritten
# from the current build, then the diff to read (tools/repin.sh: the tests
# report what they find, tools/repin.py writes it into their data). For an
# intended change of what the engine computes; never run by make test.
repin:
	@bash tools/setup.sh repin
	@$(MAKE) --no-print-directory release
	bash tools/repin.sh $(RELEASE)

# The x86-64-v3 build finds sliding attacks by pext where the others
# multiply by magics: its whole suite too, where the processor can run it.
V3 := $(BUILD)/v3
test-v3: setup-test
	@if grep -qw bmi2 /proc/cpuinfo && grep -qw avx2 /proc/cpuinfo; then \
		cmake -S . -B $(V3) -DCMAKE_BUILD_TYPE=Release -DVELKOR_ARCH=x86-64-v3 -DBUILD_TESTING=ON >/dev/null && \
		cmake --build $(V3) -j $(JOBS) --target velkor velkor_tests && \
		$(V3)/tests/velkor_tests --gtest_brief=1; \
	else echo "test-v3: no BMI2 and AVX2 on this processor, so the x86-64-v3 build is not run here"; fi

# Many games against glaurung, toga2 and stockfish: make soak GAMES=500 TC=2+0.02
GAMES ?= 100
TC ?= 2+0.02
SEED ?= 1
soak: release
	bash tools/match/setup.sh
	node tools/match/match.mjs --engine $(RELEASE)/velkor --games $(GAMES) --tc $(TC) --concurrency $(JOBS) \
		--pgn $(BUILD)/match/soak.pgn --seed $(SEED)

# The gene tuner: make tune ARGS="run build/tune/run1 --generations 30"
# (tools/tune/velkor-tune --help). A machine that lends its cores to a
# cluster: make tune-worker SCHEDULER=tcp://HOST:8786 [WORKERS=N]; the
# cluster's scheduler: make tune-scheduler.
ARGS ?= --help
WORKERS ?= $(JOBS)
tune: release
	@bash tools/setup.sh tune
	bash tools/match/setup.sh --no-opponents
	tools/tune/velkor-tune $(ARGS)

# The live page of every campaign in tuning/ and build/tune/: make tune-serve [ARGS="FOLDER ... --port N"]
tune-serve:
	@bash tools/setup.sh tune
	tools/tune/velkor-tune serve $(filter-out --help,$(ARGS))

tune-scheduler:
	@bash tools/setup.sh tune
	dask-scheduler --port 8786 --no-dashboard

tune-worker:
	@test -n "$(SCHEDULER)" || (echo "make tune-worker SCHEDULER=tcp://HOST:8786 [WORKERS=N]" >&2; exit 2)
	@bash tools/setup.sh tune
	bash tools/match/setup.sh --no-opponents
	tools/tune/velkor-tune worker $(SCHEDULER) --workers $(WORKERS)

# The fuzz targets for as long as asked: make fuzz FUZZ_SECONDS=600
FUZZ_SECONDS ?= 300
fuzz:
	bash tests/fuzz/run.sh $(FUZZ_SECONDS)

# Every perft total of tests/data/perft.epd; make test counts those up to 6 million.
perft-long: release
	cd $(RELEASE) && VELKOR_PERFT_LEAVES=18446744073709551615 ./tests/velkor_tests --gtest_filter='Perft.*'

# Perft speed against Debian's stockfish on the same machine.
bench-perft: release
	bash bench/perft.sh $(RELEASE)/velkor

# Evaluations per second over a fixed set of positions.
bench-eval: release
	$(RELEASE)/velkor_eval_bench

# bench speed against the build of commit e7ebd35 side by side (REF=commit to change),
# and beside Debian's ethereal-chess on the same positions and times.
bench-search: release
	bash bench/search.sh $(RELEASE)/velkor

# The tuner's pace: a fixed-depth match through velkor-tune verify on 2 local
# workers, then the same games replayed by the leanest runner
# (bench/runner.cpp), plies a minute of each, their ratio and the engines'
# share of all CPU time.
MATCH_GAMES ?= 400
bench-match: release
	@bash tools/setup.sh tune
	bash tools/match/setup.sh --no-opponents
	/usr/bin/python3 bench/match.py --games $(MATCH_GAMES) --depth 6 --workers 2

clean:
	rm -rf $(BUILD)

# The command battery and the transcripts under valgrind memcheck; any error fails.
VALGRIND := valgrind -q --error-exitcode=99 --leak-check=full --errors-for-leak-kinds=definite
check-valgrind: release
	@bash tools/setup.sh valgrind
	cd $(RELEASE) && VELKOR_WRAPPER="$(VALGRIND)" ./tests/velkor_tests --gtest_filter='Sessions.Battery:Sessions.Transcripts'

# Velkor in a browser: the engine as WebAssembly (Debian's emscripten, the
# same sources) and the page to play and analyse with it, as a static site
# in build/web. make serve-web serves it on 127.0.0.1 (PORT=8000);
# make test-web runs its checks (also part of make test); make bench-web
# times bench natively, under Node and in headless Chromium.
WASM := $(BUILD)/wasm
WEB := $(BUILD)/web
PORT ?= 8000
EMSDK_ENV := NODE_PATH=/usr/share/nodejs
.PHONY: web serve-web test-web bench-web bench-web-choices
web: setup-js
	@bash tools/setup.sh web
	$(EMSDK_ENV) emcmake cmake -S . -B $(WASM) -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
	$(EMSDK_ENV) cmake --build $(WASM) -j $(JOBS) --target velkor velkor_shared
	bash web/build.sh $(WASM) $(WEB)

# Cross-origin isolated, so that the engine runs without turns; SERVE=plain
# serves the site as a host without those headers would.
SERVE ?= isolated
serve-web: web
	node web/serve.mjs $(WEB) $(PORT) $(SERVE)

# The engine's sessions run against both WebAssembly builds: without turns
# (the Node entry's own choice) and with them (what a plain page runs).
test-web: release web
	for build in shared turns; do \
		(cd $(RELEASE) && VELKOR_WEB_BUILD=$$build VELKOR_WRAPPER=node VELKOR_TEST_ENGINE=$(abspath $(WEB))/engine/velkor.mjs \
		VELKOR_BANNER="$$(bash $(abspath tools/version.sh) name) WebAssembly ('quit' to exit)" \
		./tests/velkor_tests --gtest_brief=1 --gtest_filter='Sessions.*:-Sessions.TightMemory') || exit 1; \
	done
	node --test web/tests/

bench-web: release web
	node web/tests/bench.mjs $(RELEASE)/velkor $(WEB)

# The same, with the WebAssembly builds' choices beside them: the turns on
# the functions ASYNCIFY's own analysis picks, -O2, SIMD, link-time
# optimisation.
bench-web-choices: release web
	bash web/tests/choices.sh $(RELEASE)/velkor $(WEB) $(BUILD)

# The npm package velkor: the one JavaScript client of the engine with its
# types, and the WebAssembly engine inside (client/). make test-npm installs
# the tarball offline into a scratch project and uses it under Node and in
# headless chromium (part of make test).
.PHONY: npm test-npm
npm: web
	bash client/pack.sh $(WEB) $(VERSION) $(BUILD)/npm/velkor $(DIST)

test-npm: release npm
	VELKOR_NPM=$(abspath $(DIST))/velkor-$(VERSION).tgz VELKOR_ENGINE=$(abspath $(RELEASE))/velkor node --test client/tests/

# 64-bit ARM Linux (aarch64): build/arm64/velkor, a static PIE cross-built
# with Debian's g++-aarch64-linux-gnu from the same sources. make test-arm64
# runs it under qemu-aarch64-static (no binfmt set-up needed): the bench
# count, the command battery and the transcripts (tests/arm64/run.sh).
# Emulation proves the results, never the speed. Part of make test: about
# 80 s (bench 19 s, the sessions 58 s).
ARM64 := $(BUILD)/arm64
AARCH64 := -DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake
.PHONY: arm64 test-arm64
arm64:
	@bash tools/setup.sh arm64
	cmake --no-warn-unused-cli -S . -B $(ARM64) $(AARCH64) -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
	cmake --build $(ARM64) -j $(JOBS) --target velkor

test-arm64: setup-test release arm64
	@bash tools/setup.sh arm64-test
	bash tests/arm64/run.sh $(RELEASE) $(ARM64)

# Windows: velkor.exe cross-built with mingw-w64 from Debian, static (no DLL
# beyond the system's), in build/windows beside launcher.exe, which the
# tests start it from under wine (tests/windows/). Not part of make test.
WINDOWS := $(BUILD)/windows
WINE_PREFIX := $(BUILD)/wine
MINGW := -DCMAKE_TOOLCHAIN_FILE=cmake/mingw-w64-x86_64.cmake
.PHONY: windows test-windows setup-test-windows dist dist-web setup-dist
windows:
	@bash tools/setup.sh windows
	cmake --no-warn-unused-cli -S . -B $(WINDOWS) $(MINGW) -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF >/dev/null
	cmake --build $(WINDOWS) -j $(JOBS) --target velkor launcher

setup-test-windows:
	@bash tools/setup.sh windows-test

test-windows: setup-test-windows release windows
	bash tests/windows/run.sh $(RELEASE) $(WINDOWS) $(WINE_PREFIX)

# Release archives in build/dist: Linux (tar.gz) and Windows (zip) for
# x86-64-v2 and x86-64-v3, Linux for arm64 (the static aarch64 build), each
# with README, LICENSE and the tuned launcher, and the page as a site; then
# build/dist/SHA256SUMS of every archive and package there. Each binary is
# checked first: the bench count (under wine for Windows, under qemu for
# arm64), and no BMI or AVX in a v2 build (packaging/check-binary.sh).
# Earlier archives go, the Debian packages made by make deb beside them stay.
DIST := $(BUILD)/dist
DIST_WORK := $(BUILD)/dist-work
VERSION := $(shell bash tools/version.sh)
DIST_BUILDS := linux-x86-64-v2 windows-x86-64-v2 linux-x86-64-v3 windows-x86-64-v3 linux-arm64
dist: $(DIST_BUILDS:%=dist-%) dist-web
	bash tools/sha256sums.sh $(DIST)
	@ls -l $(DIST)

# The page and its engine as a static site, for any static host.
dist-web: setup-dist web
	rm -rf $(DIST_WORK)/pack/velkor-$(VERSION)-web && cp -r $(WEB) $(DIST_WORK)/pack/velkor-$(VERSION)-web
	cd $(DIST_WORK)/pack && tar -czf $(abspath $(DIST))/velkor-$(VERSION)-web.tar.gz velkor-$(VERSION)-web

setup-dist:
	@bash tools/setup.sh build
	@bash tools/setup.sh dist
	@bash -c 'source tools/wine.sh $(WINE_PREFIX)'
	mkdir -p $(DIST) && rm -f $(DIST)/velkor-*.tar.gz $(DIST)/velkor-*.zip

# The cross compiler and processor level of an archive's build: x86-64
# levels by name, arm64 from its toolchain file.
dist_flags = $(if $(filter windows-%,$1),$(MINGW)) \
	$(if $(filter linux-arm64,$1),$(AARCH64),-DVELKOR_ARCH=$(patsubst windows-%,%,$(patsubst linux-%,%,$1)))
dist-%: setup-dist
	cmake --no-warn-unused-cli -S . -B $(DIST_WORK)/$* $(call dist_flags,$*) -DCMAKE_BUILD_TYPE=Release \
		-DBUILD_TESTING=OFF >/dev/null
	cmake --build $(DIST_WORK)/$* -j $(JOBS) --target velkor
	bash packaging/check-binary.sh $(DIST_WORK)/$* $(WINE_PREFIX)
	rm -rf $(DIST_WORK)/pack/velkor-$(VERSION)-$* && mkdir -p $(DIST_WORK)/pack/velkor-$(VERSION)-$*
	cp $(DIST_WORK)/$*/velkor$(if $(filter windows-%,$*),.exe) README.md LICENSE $(DIST_WORK)/pack/velkor-$(VERSION)-$*/
	bash tools/tune/launcher.sh $(if $(filter windows-%,$*),windows,linux) $(DIST_WORK)/pack/velkor-$(VERSION)-$*
	cd $(DIST_WORK)/pack && $(if $(filter windows-%,$*),zip -qr $(abspath $(DIST))/velkor-$(VERSION)-$*.zip,tar -czf $(abspath $(DIST))/velkor-$(VERSION)-$*.tar.gz) velkor-$(VERSION)-$*

# The Debian packages build/dist/velkor_<version>-<revision>_amd64.deb and
# _arm64.deb (packaging/deb/): the x86-64-v2 release build and the arm64
# build, checked as make dist checks them, packed with Debian's tools
# (dependencies by dpkg-shlibdeps); lintian must find no error and no
# warning in either. The version is the top entry of packaging/deb/changelog,
# whose upstream part must be the engine's. make test-deb installs the amd64
# one into a fresh Debian 12 root (packaging/deb/test.sh). Not part of make
# test.
DEB_WORK := $(BUILD)/deb-work
deb: arm64
	@bash tools/setup.sh build
	@bash tools/setup.sh deb
	cmake --no-warn-unused-cli -S . -B $(DEB_WORK)/linux-x86-64-v2 -DCMAKE_BUILD_TYPE=Release -DBUILD_TESTING=OFF \
		-DVELKOR_ARCH=x86-64-v2 >/dev/null
	cmake --build $(DEB_WORK)/linux-x86-64-v2 -j $(JOBS) --target velkor
	bash packaging/check-binary.sh $(DEB_WORK)/linux-x86-64-v2 $(WINE_PREFIX)
	bash packaging/check-binary.sh $(ARM64) $(WINE_PREFIX)
	bash packaging/deb/build.sh $(DEB_WORK)/linux-x86-64-v2/velkor amd64 $(DEB_WORK)/pkg-amd64 $(DIST)
	bash packaging/deb/build.sh $(ARM64)/velkor arm64 $(DEB_WORK)/pkg-arm64 $(DIST)
	bash tools/sha256sums.sh $(DIST)

test-deb: deb
	@bash tools/setup.sh deb-test
	bash packaging/deb/test.sh $(DIST)/velkor_$$(dpkg-parsechangelog -l packaging/deb/changelog -S Version)_amd64.deb $(BUILD)/deb-test

# The README's two commands in a fresh Debian 12 root (debootstrap minbase
# with git and make, kept as a tarball in build/fresh), on a clone of the
# current commit: make run answers uci, make test passes; as root
# (tools/fresh.sh).
.PHONY: test-fresh
test-fresh:
	@bash tools/setup.sh deb-test
	bash tools/fresh.sh $(BUILD)/fresh
