# The names that people type. CMake and the scripts in tools/ do the work.
.PHONY: help native windows windows-x64 windows-x86 windows-arm64 test test-all test-report check demo lint \
        tidy format fuzz package release sign reproducible fresh clean distclean
BUILD = cmake --preset $@ && cmake --build --preset $@

help:
	@echo 'make windows       both DLLs: build/windows-x64/ and build/windows-x86/'
	@echo 'make windows-arm64 the ARM64 DLL, and the one that stands for it and the x64 DLL'
	@echo 'make native        the same library for this machine, over PC/SC lite: build/native/'
	@echo 'make test          every check and test; ./test.sh installs what it needs first'
	@echo 'make check         lint, and the unit tests, after a change: half a minute'
	@echo 'make test-all      the same, ARM64 and everything of a release too: half an hour'
	@echo 'make test-report   the page of cardhost report in headless Chromium, which it installs'
	@echo 'make demo          a logon with each card generation; ./demo.sh installs first'
	@echo 'make lint          the checks of the source only'
	@echo 'make tidy          clang-tidy over all sources, and not only over what has changed'
	@echo 'make format        clang-format over all sources'
	@echo 'make fuzz          the fuzzers, a minute each'
	@echo 'make package       the MSI and the registration file for Windows: build/package/'
	@echo 'make release       everything of a release, for three architectures: dist/'
	@echo 'make sign          the same, signed: CERTIFICATE=file.pem KEY=file.pem, and more in'
	@echo '                   docs/releasing.md'
	@echo 'make reproducible  builds the release twice, in two folders, and compares'
	@echo 'make fresh         ./demo.sh and ./test.sh of a clean clone on a bare Debian 12'
	@echo 'make clean         removes dist/ and build/, but for build/cache; make distclean that too'

native:
	$(BUILD)

windows: windows-x64 windows-x86

windows-x64 windows-x86:
	$(BUILD)

windows-arm64:
	tools/install_packages.sh arm64
	KELMORA_ARM64_RUNTIME=$$(tools/build_arm64_runtime.sh) && export KELMORA_ARM64_RUNTIME && \
	KELMORA_BOTAN_ARM64=$$(tools/build_botan.sh aarch64) && export KELMORA_BOTAN_ARM64 && $(BUILD)

test:
	tools/run_tests.py

test-all: test windows windows-arm64
	tools/install_packages.sh test-all
	tools/test_release.sh

test-report: native
	tools/install_packages.sh browser
	tests/system/report/report_page_test.py --cardhost build/native/cardhost --screenshots build/report

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

package: windows
	tools/install_packages.sh package
	packaging/windows/make_package.sh

# The address where the MSIs will be to be had, for the winget manifest: ADDRESS=https://...
release_options = $(if $(ADDRESS),--address '$(ADDRESS)')
signing_options = --certificate '$(CERTIFICATE)' --key '$(KEY)' \
	$(if $(PKCS11_MODULE),--pkcs11-module '$(PKCS11_MODULE)') \
	$(if $(PASSWORD_FILE),--password-file '$(PASSWORD_FILE)') \
	$(if $(TIMESTAMP),--timestamp '$(TIMESTAMP)')

release: windows windows-arm64
	tools/install_packages.sh package
	packaging/windows/make_release.sh $(release_options)

sign:
	@test -n "$(CERTIFICATE)" -a -n "$(KEY)" || { \
		echo 'usage: make sign CERTIFICATE=file.pem KEY=file.pem|pkcs11:object=NAME'; \
		echo '       [PKCS11_MODULE=file.so] [PASSWORD_FILE=file] [TIMESTAMP=address]'; exit 2; }
	$(MAKE) --no-print-directory windows windows-arm64
	tools/install_packages.sh package
	packaging/windows/make_release.sh $(release_options) $(signing_options)

reproducible:
	tools/install_packages.sh arm64 package
	tools/check_reproducible.sh

fresh:
	tools/check_fresh.sh

clean:
	rm -rf dist
	[ ! -d build ] || find build -mindepth 1 -maxdepth 1 ! -name cache -exec rm -rf {} +

# The folders with Wine belong to root.
distclean: clean
	rm -rf --one-file-system build 2>/dev/null || sudo rm -rf --one-file-system build
