# The fuzz targets, one per parser of untrusted bytes: fuzz/<Name>Fuzz.cpp builds fuzz_<name>,
# its seeds are in fuzz/corpus/<name> and the inputs of its past findings in
# fuzz/regression/<name>. Read by the native fuzz build (fuzz/CMakeLists.txt) and by the main
# build, which runs each one briefly as a test (tests/fuzz).
set(VANTREL_FUZZ_TARGETS codec cursor fec fragment lesson packet region)
