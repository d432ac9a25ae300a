# DCMTK and OpenJPEG from the distribution's -dev packages, linked by library name:
# Debian's DCMTKConfig.cmake exports targets that drag in optional components.
find_path(DCMTK_INCLUDE_DIR dcmtk/dcmdata/dctk.h REQUIRED)
find_library(DCMTK_DCMDATA dcmdata REQUIRED)
add_library(kq_dcmtk INTERFACE)
target_include_directories(kq_dcmtk SYSTEM INTERFACE ${DCMTK_INCLUDE_DIR})
target_link_libraries(kq_dcmtk INTERFACE dcmdata oflog ofstd)

add_library(kq_dcmtk_codecs INTERFACE)
target_link_libraries(kq_dcmtk_codecs INTERFACE kq_dcmtk dcmjpeg dcmjpls ijg8 ijg12 ijg16 dcmimage dcmimgle)

find_package(PkgConfig REQUIRED)
pkg_check_modules(OPENJPEG REQUIRED IMPORTED_TARGET libopenjp2)

find_package(GTest REQUIRED)
find_package(Threads REQUIRED)

# Adds a GoogleTest executable registered with CTest. With KQ_DICTIONARY the "KQ group A"
# dictionary entries are registered before the tests run, as the programs do at start-up.
function(kq_add_test name)
  cmake_parse_arguments(ARG "KQ_DICTIONARY" "" "" ${ARGN})
  add_executable(${name} ${ARG_UNPARSED_ARGUMENTS})
  target_link_libraries(${name} PRIVATE kq_fixtures GTest::gtest Threads::Threads)
  # Test code itself is not optimised: it spends its time in the libraries and programs, which are
  # built as shipped, and unoptimised GoogleTest code compiles in less than half the time.
  target_compile_options(${name} PRIVATE -O0)
  if(ARG_KQ_DICTIONARY)
    target_sources(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests/fixtures/dictionary/KQDictionarySetUp.cpp)
    target_link_libraries(${name} PRIVATE privatetags)
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60
    PROPERTIES ENVIRONMENT "KQ_BIN_DIR=${CMAKE_BINARY_DIR}/bin")
endfunction()

# A folder's library from the sources in it; a folder still without sources gives an
# interface library so that its dependants configure. The include root is the repository root,
# so every include names its library ("privatetags/KQItem.h").
function(kq_add_library name)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(sources)
    add_library(${name} STATIC ${sources})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC ${ARGN})
  else()
    add_library(${name} INTERFACE)
    target_include_directories(${name} INTERFACE ${PROJECT_SOURCE_DIR})
    target_link_libraries(${name} INTERFACE ${ARGN})
  endif()
endfunction()
