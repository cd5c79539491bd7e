# Header-only libraries used by the tools and tests. They lie in /usr/include, which every compiler
# used here searches by itself, so nothing but their presence is needed.

foreach(header nlohmann/json.hpp rapidjson/reader.h valijson/validator.hpp CLI/CLI.hpp)
  if(NOT EXISTS /usr/include/${header})
    message(FATAL_ERROR "/usr/include/${header} is missing. Run scripts/setup.")
  endif()
endforeach()
