# Each peer takes part when its library and its tools are there. None is needed.

set(made ${CMAKE_BINARY_DIR}/bench/peers)
set(schemas ${CMAKE_CURRENT_SOURCE_DIR}/peers)

# bench_peer(<NAME> <file>... ): builds the files of a peer and tells the program of it.
function(bench_peer name)
  target_sources(bench_policy PRIVATE ${ARGN})
  target_compile_definitions(bench_policy PRIVATE BENCH_${name})
  message(STATUS "Benchmarks: ${name} takes part")
endfunction()

# bench_made(<outputs> DEPENDS <schema> COMMAND <command>...): generated sources, which are not ours.
function(bench_made)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "SCHEMA" "OUTPUT;COMMAND")
  list(GET arg_OUTPUT 0 first)
  cmake_path(GET first PARENT_PATH folder)
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(OUTPUT ${arg_OUTPUT} COMMAND ${arg_COMMAND} DEPENDS ${arg_SCHEMA} VERBATIM)
  target_sources(bench_policy PRIVATE ${arg_OUTPUT})
  set_source_files_properties(${arg_OUTPUT} PROPERTIES COMPILE_OPTIONS "-w")
endfunction()

function(bench_find variable header library)
  find_path(BENCH_${variable}_HEADER ${header})
  find_library(BENCH_${variable}_LIBRARY ${library})
  if(BENCH_${variable}_HEADER AND BENCH_${variable}_LIBRARY)
    set(${variable}_found TRUE PARENT_SCOPE)
  endif()
endfunction()

if(CMAKE_CROSSCOMPILING OR NOT CMAKE_SIZEOF_VOID_P EQUAL 8)
  return()  # the peers are this machine's
endif()

bench_find(sqlite sqlite3.h sqlite3)
if(sqlite_found)
  bench_peer(SQLITE peers/sqlite.cpp)
  target_link_libraries(bench_policy PRIVATE ${BENCH_sqlite_LIBRARY})
endif()

bench_find(redis hiredis/hiredis.h hiredis)
find_program(BENCH_REDIS_SERVER redis-server)
if(redis_found AND BENCH_REDIS_SERVER)
  bench_peer(REDIS peers/redis.cpp)
  target_link_libraries(bench_policy PRIVATE ${BENCH_redis_LIBRARY})
endif()

find_program(BENCH_PROTOC protoc)
bench_find(protobuf google/protobuf/message.h protobuf)
if(protobuf_found AND BENCH_PROTOC)
  bench_peer(PROTOBUF peers/protobuf.cpp)
  bench_made(OUTPUT ${made}/pb/policy.pb.cc ${made}/pb/policy.pb.h SCHEMA ${schemas}/policy.proto
    COMMAND ${BENCH_PROTOC} -I${schemas} --cpp_out=${made}/pb ${schemas}/policy.proto)
  target_include_directories(bench_policy SYSTEM PRIVATE ${made}/pb)
  target_link_libraries(bench_policy PRIVATE ${BENCH_protobuf_LIBRARY})
endif()

# nanopb twice: with fields of fixed sizes, and with fields from malloc.
find_program(BENCH_NANOPB_GENERATOR nanopb_generator.py)
bench_find(nanopb pb_decode.h protobuf-nanopb)
if(nanopb_found AND BENCH_NANOPB_GENERATOR)
  bench_peer(NANOPB peers/nanopb.cpp peers/nanopb_pointers.cpp)
  bench_made(SCHEMA ${schemas}/policy.proto
    OUTPUT ${made}/nanopb_fixed/policy.pb.c ${made}/nanopb_fixed/policy.pb.h
    COMMAND ${BENCH_NANOPB_GENERATOR} -q -I ${schemas} -D ${made}/nanopb_fixed
      -f ${schemas}/nanopb_fixed.options policy.proto)
  file(READ ${schemas}/policy.proto text)
  string(REPLACE "package bench_pb;" "package bench_pbm;" text "${text}")
  file(CONFIGURE OUTPUT ${made}/nanopb_malloc/policy_malloc.proto CONTENT "${text}" @ONLY)
  bench_made(SCHEMA ${made}/nanopb_malloc/policy_malloc.proto
    OUTPUT ${made}/nanopb_malloc/policy_malloc.pb.c ${made}/nanopb_malloc/policy_malloc.pb.h
    COMMAND ${BENCH_NANOPB_GENERATOR} -q -I ${made}/nanopb_malloc -D ${made}/nanopb_malloc
      -f ${schemas}/nanopb_malloc.options policy_malloc.proto)
  target_include_directories(bench_policy SYSTEM PRIVATE
    ${made}/nanopb_fixed ${made}/nanopb_malloc)
  target_compile_definitions(bench_policy PRIVATE PB_ENABLE_MALLOC)
  target_link_libraries(bench_policy PRIVATE ${BENCH_nanopb_LIBRARY})
endif()

find_program(BENCH_FLATC flatc)
find_path(BENCH_FLATBUFFERS_HEADER flatbuffers/flatbuffers.h)
if(BENCH_FLATC AND BENCH_FLATBUFFERS_HEADER)
  bench_peer(FLATBUFFERS peers/flatbuffers.cpp)
  bench_made(OUTPUT ${made}/fb/policy_generated.h SCHEMA ${schemas}/policy.fbs
    COMMAND ${BENCH_FLATC} --cpp -o ${made}/fb ${schemas}/policy.fbs)
endif()

bench_find(nftnl libnftnl/rule.h nftnl)
bench_find(mnl libmnl/libmnl.h mnl)
if(nftnl_found AND mnl_found)
  bench_peer(NFTNL peers/nftnl.cpp)
  target_link_libraries(bench_policy PRIVATE ${BENCH_nftnl_LIBRARY} ${BENCH_mnl_LIBRARY})
endif()
