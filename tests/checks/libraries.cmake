# Oracles: OpenSSL (SHA-1, AES), zlib (CRC-32), Boost.CRC (any polynomial, headers alone), nettle (RC4),
# libmcrypt (Rijndael with blocks of 24 and 32 bytes).
find_package(OpenSSL REQUIRED COMPONENTS Crypto)
find_package(ZLIB REQUIRED)
find_library(NETTLE_LIBRARY nettle REQUIRED)
find_library(MCRYPT_LIBRARY mcrypt REQUIRED)
target_link_libraries(test_checks PRIVATE OpenSSL::Crypto ZLIB::ZLIB ${NETTLE_LIBRARY}
                                          ${MCRYPT_LIBRARY})
