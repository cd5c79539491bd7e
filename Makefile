# One command for each habit. The work is done by CMake presets and the programs in scripts/.

prefix ?= /usr/local
DESTDIR ?=
JOBS ?= $(shell nproc)
PRESETS := native i386 powerpc asan tsan clang

.DEFAULT_GOAL := native
MAKEFLAGS += --no-print-directory
.PHONY: $(PRESETS) all demo fleet-demo check coverage fuzz soak bench bench-compare format lint install clean help
.PHONY: dist deb check-deb python wheel site
.PHONY: $(PRESETS:%=check-%) check-coverage

$(PRESETS):
	@cmake --preset $@ $(if $(V),,--log-level=NOTICE)
	@cmake --build --preset $@ -j $(JOBS) --target products

all:
	@scripts/setup native
	@cmake --preset native -DQIM_TESTS=ON -DQIM_BENCH=ON $(if $(V),,--log-level=NOTICE)
	@cmake --build --preset native -j $(JOBS)

# What compiling says is for terminals, where it takes a line.
demo:
	@scripts/setup demo
	@echo 'Building the libraries and the tool, a minute or two at the first time'
	@if [ -t 1 ]; then $(MAKE) native; else mkdir -p build && $(MAKE) native >build/demo.log || \
	  { tail -n 40 build/demo.log; exit 1; }; fi
	@scripts/demo

fleet-demo:
	@scripts/setup fleet
	@echo 'Building the libraries and the programs for fleets, some minutes at the first time'
	@cmake --preset native -DQIM_FLEET=ON $(if $(V),,--log-level=NOTICE)
	@if [ -t 1 ]; then $(MAKE) native; else mkdir -p build && $(MAKE) native >build/demo.log || \
	  { tail -n 40 build/demo.log; exit 1; }; fi
	@scripts/fleet-demo

check:
	@scripts/check

$(PRESETS:%=check-%) check-coverage: check-%:
	@scripts/check $*

coverage:
	@scripts/coverage

mutate:
	@scripts/setup native
	@scripts/mutate

soak:
	@scripts/soak

fuzz:
	@scripts/fuzz

bench:
	@scripts/bench

bench-compare:
	@scripts/bench-compare

format:
	@scripts/format

lint:
	@scripts/setup lint
	@scripts/lint

python: native
	@cmake --build --preset native -j $(JOBS) --target qim_python

wheel: python
	@/usr/bin/python3 bindings/python/wheel.py build/native \
	  $$(sed -n 's/^project(qimcommon VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt) build/native

install: native
	@DESTDIR='$(DESTDIR)' cmake --install build/native --prefix '$(prefix)'

dist:
	@scripts/dist

deb:
	@scripts/setup deb
	@scripts/deb

check-deb:
	@scripts/setup deb
	@scripts/deb --test

site:
	@scripts/setup site
	@scripts/site

clean:
	rm -rf build

help:
	@echo 'make                    build the libraries and the tool for this machine into build/native'
	@echo 'make all                the tests and the benchmarks, too'
	@echo 'make <preset>           the libraries and the tool for one of: $(PRESETS)'
	@echo 'make demo               set up, build, and show the tool at work'
	@echo 'make fleet-demo         the same of a fleet: three members of a store and five devices'
	@echo 'make check              everything: lint, all builds, all tests, what they reach'
	@echo 'make check-<preset>     the tests of one preset'
	@echo 'make coverage           which lines and branches the tests reach'
	@echo 'make soak               the fault sweeps with a hundred times their counts, for hours'
	@echo 'make fuzz               search for inputs that break something, for five minutes'
	@echo 'make mutate             break the library on purpose and see whether its tests notice'
	@echo 'make bench              benchmarks'
	@echo 'make bench-compare      what changed in their ratios since they were kept'
	@echo 'make format             format the sources'
	@echo 'make lint               check format and house rules, and analyse the sources'
	@echo 'make python             the Python package, into build/native/python'
	@echo 'make wheel              a wheel of it that carries the libraries'
	@echo 'make install            DESTDIR and prefix (now $(prefix)) say where'
	@echo 'make dist               pack the sources: the same sources give the same bytes'
	@echo 'make deb                Debian packages in build/deb'
	@echo 'make check-deb          and install, use and remove them in a fresh root, as root'
	@echo 'make site               docs/ and the headers as pages for a browser, in build/site'
	@echo 'make clean              remove all builds'
