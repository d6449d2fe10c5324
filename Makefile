# The names that people type. CMake and the scripts in tools/ do the work.
.PHONY: help native windows windows-x64 windows-x86 windows-arm64 test test-all test-report bench bench-check \
        check demo lint tidy format fuzz coverage mutants faults threads long package release sign reproducible \
        fresh clean distclean
BUILD = cmake --preset $@ && cmake --build --preset $@

help:
	@echo 'make windows       both DLLs: build/windows-x64/ and build/windows-x86/'
	@echo 'make windows-arm64 the ARM64 DLL, and the one that stands for it and the x64 DLL'
	@echo 'make native        the same library for this machine, over PC/SC lite:'
	@echo '                   build/native/'
	@echo 'make test          every check and test; ./test.sh installs what it needs first'
	@echo 'make check         lint, and the unit tests, after a change: half a minute'
	@echo 'make test-all      the same, ARM64 and everything of a release too: half an hour'
	@echo 'make test-report   the page of cardhost report in headless Chromium, which it'
	@echo '                   installs'
	@echo 'make bench         what the driver costs: a table, and a page with plots'
	@echo '                   (build/bench/)'
	@echo 'make bench-check   instructions and sizes against the kept ones; ./test.sh does'
	@echo '                   it too'
	@echo 'make demo          a logon with each card generation; ./demo.sh installs first'
	@echo 'make lint          the checks of the source only'
	@echo "make tidy          clang-tidy and GCC's analyser over all sources, and not only"
	@echo '                   over what has changed'
	@echo 'make format        clang-format over all sources'
	@echo 'make fuzz          the fuzzers, a minute each'
	@echo 'make faults        every fault at every place, natively: over 50,000 runs'
	@echo 'make threads       16 threads under ThreadSanitizer, and against both DLLs in'
	@echo '                   Wine'
	@echo 'make long          10,000 acquisitions, natively and in Wine, and 1,000 loads of'
	@echo '                   each DLL'
	@echo 'make coverage      what of src/ the tests run: lines, branches, conditions by'
	@echo '                   MC/DC'
	@echo 'make mutants       faults of one token in src/, and which of them no test sees:'
	@echo '                   100 of them, or COUNT=1000, SEED=2, SINCE=main,'
	@echo '                   ONLY=boundary, RESUME=1'
	@echo 'make package       the MSI and the registration file for Windows: build/package/'
	@echo 'make release       everything of a release, for three architectures: dist/'
	@echo 'make sign          the same, signed: CERTIFICATE=file.pem KEY=file.pem, and more'
	@echo '                   in docs/releasing.md'
	@echo 'make reproducible  builds the release twice, in two folders, and compares'
	@echo 'make fresh         ./demo.sh and ./test.sh of a clean clone on a bare Debian 12'
	@echo 'make clean         removes dist/ and build/, but for build/cache; make distclean'
	@echo '                   that too'

native:
	$(BUILD)

windows: windows-x64 windows-x86

windows-x64 windows-x86:
	$(BUILD)

# A build folder keeps the compiler that it began with: with another runtime it begins anew.
windows-arm64:
	tools/install_packages.sh arm64
	KELMORA_ARM64_RUNTIME=$$(tools/build_arm64_runtime.sh) && export KELMORA_ARM64_RUNTIME && \
	{ grep -qs "\"$$KELMORA_ARM64_RUNTIME/" build/windows-arm64/CMakeFiles/*/CMakeCXXCompiler.cmake || \
		rm -rf build/windows-arm64; } && \
	KELMORA_BOTAN_ARM64=$$(tools/build_botan.sh aarch64) && export KELMORA_BOTAN_ARM64 && $(BUILD)

test:
	tools/run_tests.py

# Targets that are to work on a machine with nothing on it install first and build then: what stands behind
# the colon would be built ahead of that.
test-all:
	tools/install_packages.sh build run test test-all
	$(MAKE) --no-print-directory test native windows windows-arm64
	tools/test_release.sh

test-report: native
	tools/install_packages.sh browser
	tests/system/report/report_page_test.py --cardhost build/native/cardhost --screenshots build/report

bench: native windows
	tools/install_packages.sh test run
	cmake --build build/native --target bench_programs
	cmake --build build/windows-x86 --target minidriver_debug
	cmake --build build/windows-x64 --target minidriver_debug
	cmake --build build/windows-x64 --target bench_programs
	bench/bench.py

bench-check: windows
	tools/install_packages.sh test
	cmake --preset native >/dev/null
	cmake --build build/native --target bench_journey
	bench/bench.py check
	bench/check_test.py --bin build/native

check:
	cmake --preset sanitized >/dev/null
	cmake --build --preset check
	ctest --preset check

demo: windows-x64
	tools/demo.sh

lint:
	tools/run_tests.py lint

tidy:
	cmake --preset sanitized >/dev/null
	cmake --build build/sanitized --target tidy

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format-14 -i

fuzz:
	$(BUILD)
	tools/run_fuzzers.sh

# A program of the in-process tests, natively under a preset's sanitizers, or in Wine.
in_process = cmake --preset $(1) >/dev/null && cmake --build build/$(1) --target $(2)
in_wine = tools/run_in_wine.sh $(1) build/windows-$(1)/tests/boundary/boundary_tests.exe --gtest_brief=1

faults:
	$(call in_process,sanitized,faults)
	tools/run_faults.py build/sanitized/tests/faults/faults

threads:
	$(call in_process,threads,boundary_tests)
	TSAN_OPTIONS=suppressions=tests/boundary/thread_sanitizer_suppressions.txt KELMORA_ROUNDS=20 \
		build/threads/tests/boundary/boundary_tests --gtest_brief=1 --gtest_filter='Threads.*'
	$(call in_process,windows-x64,boundary_tests)
	$(call in_process,windows-x86,boundary_tests)
	KELMORA_ROUNDS=20 $(call in_wine,x64) --gtest_filter='Threads.*'
	KELMORA_ROUNDS=20 $(call in_wine,x86) --gtest_filter='Threads.*'

long:
	$(call in_process,sanitized,boundary_tests)
	KELMORA_ROUNDS=10000 build/sanitized/tests/boundary/boundary_tests --gtest_brief=1 --gtest_filter='*LongRun*'
	$(call in_process,windows-x64,boundary_tests)
	$(call in_process,windows-x86,boundary_tests)
	KELMORA_ROUNDS=10000 $(call in_wine,x64) --gtest_filter='*LongRun*'
	KELMORA_ROUNDS=10000 $(call in_wine,x86) --gtest_filter='*LongRun*'

coverage:
	tools/coverage.py --report

mutants:
	tools/mutants.py $(if $(COUNT),--count $(COUNT)) $(if $(SEED),--seed $(SEED)) \
		$(if $(SINCE),--since $(SINCE)) $(if $(ONLY),--only $(ONLY)) $(if $(RESUME),--resume)

package:
	tools/install_packages.sh build package
	$(MAKE) --no-print-directory windows
	packaging/windows/make_package.sh

# The address where the MSIs will be to be had, for the winget manifest: ADDRESS=https://...
# DIST=folder makes it in another place than dist/.
release_options = $(if $(ADDRESS),--address '$(ADDRESS)') $(if $(DIST),--output '$(DIST)')
signing_options = --certificate '$(CERTIFICATE)' --key '$(KEY)' \
	$(if $(PKCS11_MODULE),--pkcs11-module '$(PKCS11_MODULE)') \
	$(if $(PASSWORD_FILE),--password-file '$(PASSWORD_FILE)') \
	$(if $(TIMESTAMP),--timestamp '$(TIMESTAMP)')

release:
	tools/install_packages.sh build arm64 package
	$(MAKE) --no-print-directory windows windows-arm64
	packaging/windows/make_release.sh $(release_options)

sign:
	@test -n "$(CERTIFICATE)" -a -n "$(KEY)" || { \
		echo 'usage: make sign CERTIFICATE=file.pem KEY=file.pem|pkcs11:object=NAME'; \
		echo '       [PKCS11_MODULE=file.so] [PASSWORD_FILE=file] [TIMESTAMP=address]'; exit 2; }
	tools/install_packages.sh build arm64 package
	$(MAKE) --no-print-directory windows windows-arm64
	packaging/windows/make_release.sh $(release_options) $(signing_options)

reproducible:
	tools/install_packages.sh build arm64 package
	tools/check_reproducible.sh

fresh:
	tools/check_fresh.sh

clean:
	rm -rf dist
	[ ! -d build ] || find build -mindepth 1 -maxdepth 1 ! -name cache -exec rm -rf {} +

# The folders with Wine belong to root.
distclean: clean
	rm -rf --one-file-system build 2>/dev/null || sudo rm -rf --one-file-system build
