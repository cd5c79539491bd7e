# GoogleTest and GoogleMock, compiled from the distribution's sources for every preset, with the
# preset's sanitizers but without our warnings: targets `gtest` and `gtest_main`.

set(QIM_GTEST_SOURCE /usr/src/googletest CACHE PATH "Sources of GoogleTest")
if(NOT EXISTS ${QIM_GTEST_SOURCE}/googletest/src/gtest-all.cc)
  message(FATAL_ERROR "${QIM_GTEST_SOURCE} has no GoogleTest sources. Run scripts/setup.")
endif()

add_library(gtest STATIC
  ${QIM_GTEST_SOURCE}/googletest/src/gtest-all.cc ${QIM_GTEST_SOURCE}/googlemock/src/gmock-all.cc)
target_include_directories(gtest SYSTEM
  PUBLIC ${QIM_GTEST_SOURCE}/googletest/include ${QIM_GTEST_SOURCE}/googlemock/include
  PRIVATE ${QIM_GTEST_SOURCE}/googletest ${QIM_GTEST_SOURCE}/googlemock)
target_compile_options(gtest PRIVATE -w -O1 -g0)
if(QIM_SANITIZE MATCHES undefined)
  # The framework's own arithmetic is not what is tested, and these checks take long to compile.
  target_compile_options(gtest PRIVATE -fno-sanitize=undefined)
endif()
target_link_libraries(gtest PUBLIC Threads::Threads)

add_library(gtest_main STATIC ${QIM_GTEST_SOURCE}/googlemock/src/gmock_main.cc)
target_link_libraries(gtest_main PUBLIC gtest)
set_target_properties(gtest gtest_main PROPERTIES EXCLUDE_FROM_ALL ON)
