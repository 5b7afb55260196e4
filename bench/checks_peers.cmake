# Peers: zlib, ISA-L and libdeflate (CRC-32), OpenSSL, libgcrypt and nettle (SHA-1, AES, RC4), libmcrypt
# (larger Rijndael blocks), Boost.CRC.
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(ZLIB REQUIRED)
foreach(peer isal deflate gcrypt nettle mcrypt)
  find_library(CHECKS_${peer} ${peer} REQUIRED)
  target_link_libraries(bench_checks PRIVATE ${CHECKS_${peer}})
endforeach()
target_link_libraries(bench_checks PRIVATE OpenSSL::Crypto ZLIB::ZLIB)
