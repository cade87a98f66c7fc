# Entry points. `make demo` builds and verifies the bundled examples; `make test`
# builds everything and runs the whole test suite.
BUILD ?= build
JOBS ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=

.PHONY: all bootstrap build demo test test-asan clean

all: build

bootstrap:
	@bash scripts/bootstrap.sh

build: bootstrap
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release $(CMAKE_ARGS) >/dev/null
	cmake --build $(BUILD) -j $(JOBS)

demo: build
	bash examples/run-demo.sh $(BUILD)/xmldsig

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The same suite under AddressSanitizer and UndefinedBehaviorSanitizer.
test-asan:
	$(MAKE) test BUILD=build-asan CMAKE_ARGS="-DXMLDSIG_SANITIZE=ON -DCMAKE_BUILD_TYPE=RelWithDebInfo"

clean:
	rm -rf build build-asan
