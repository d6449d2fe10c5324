# The names that people type. CMake and the scripts in tools/ do the work.
.PHONY: help native windows windows-x64 windows-x86 test test-report demo lint format fuzz package sign reproducible clean
BUILD = cmake --preset $@ && cmake --build --preset $@

help:
	@echo 'make windows       both DLLs: build/windows-x64/ and build/windows-x86/'
	@echo 'make native        the same library for this machine, over PC/SC lite: build/native/'
	@echo 'make test          every check and test; ./test.sh installs what it needs first'
	@echo 'make test-report   the page of cardhost report in headless Chromium, which it installs'
	@echo 'make demo          a logon with each card generation; ./demo.sh installs first'
	@echo 'make lint          the checks of the source only'
	@echo 'make format        clang-format over all sources'
	@echo 'make fuzz          the fuzzers, a minute each'
	@echo 'make package       the MSI and the registration file for Windows: build/package/'
	@echo 'make sign          the same, signed: CERTIFICATE=file.pem KEY=file.pem'
	@echo 'make reproducible  builds both DLLs twice, in two folders, and compares'
	@echo 'make clean         removes build/'

native:
	$(BUILD)

windows: windows-x64 windows-x86

windows-x64:
	KELMORA_BOTAN_X64=$$(tools/build_botan.sh x86_64) && export KELMORA_BOTAN_X64 && $(BUILD)

windows-x86:
	KELMORA_BOTAN_X86=$$(tools/build_botan.sh i686) && export KELMORA_BOTAN_X86 && $(BUILD)

test:
	tools/run_tests.py

test-report: native
	tools/install_packages.sh browser
	tests/system/report/report_page_test.py --cardhost build/native/cardhost --screenshots build/report

demo: windows-x64
	tools/demo.sh

lint:
	tools/run_tests.py lint

format:
	git ls-files '*.cpp' '*.h' | xargs clang-format-14 -i

fuzz:
	$(BUILD)
	tools/run_fuzzers.sh

package: windows
	tools/install_packages.sh package
	packaging/windows/make_package.sh

sign: windows
	@test -n "$(CERTIFICATE)" -a -n "$(KEY)" || { echo 'usage: make sign CERTIFICATE=file.pem KEY=file.pem'; exit 2; }
	tools/install_packages.sh package
	packaging/windows/make_package.sh "$(CERTIFICATE)" "$(KEY)"

reproducible:
	tools/check_reproducible.sh

clean:
	rm -rf build
