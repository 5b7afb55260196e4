#pragma once
// The SHA-1 digest of FIPS 180-1, over memory and files.

#include <cstdint>

#include "qelbase/export.h"

// For one digest: `Reset` (not needed on a fresh object), any mix of `Update` and `HashFile`, then
// `Final`, then any number of `ReportHash` and `GetHash`. After `Final` only `Reset` starts anew.
// A copy goes on by itself. Nothing is allocated. An object belongs to one thread at a time.
//
// SHA-1 no longer withstands an attacker who makes two inputs with one digest; it is here to read
// and check what exists.
class QELBASE_API CSHA1 {
 public:
  CSHA1();
  CSHA1(const CSHA1& other);
  CSHA1& operator=(const CSHA1& other);
  virtual ~CSHA1();  // wipes what it knew of the message; the digest stays

  // Digest and block buffer stay.
  void Reset();

  void Update(const unsigned char* data, std::uint32_t length);

  // Feeds in a whole file, by pieces of 8000 bytes. The name is a path in UTF-8. False, and nothing
  // fed in, if it cannot be opened or is a folder. The size when it was opened decides how much is
  // fed in: a file that shrinks or fails meanwhile still gives that many bytes, and true. What has
  // no size, a pipe for one, is read to its end.
  bool HashFile(char* file_name);

  // Pads, stores the digest, wipes the working data.
  void Final();

  // Appends the digest to the zero-terminated text in `text`: type 0 as "DA 39 ...", 59 characters,
  // type 1 as "218 57 ...", at most 79. Any other type replaces the text by
  // "Error: Unknown report type!". The caller gives room for 80 more bytes.
  void ReportHash(char* text, unsigned char type) const;

  // Copies 20 bytes; before the first `Final` they have no meaning.
  void GetHash(unsigned char* digest) const;

 private:
  static void Transform(std::uint32_t* state, const unsigned char* block);

  std::uint32_t m_state[5];
  std::uint32_t m_bits[2];  // message length, low word first
  unsigned char m_buffer[64];
  unsigned char m_digest[20];
};
