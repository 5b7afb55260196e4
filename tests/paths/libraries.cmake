# g++ 12 warns falsely of std::regex with a lookahead when it builds for the sanitizers.
target_compile_options(test_paths PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
