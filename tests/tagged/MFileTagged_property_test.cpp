// Saves in random order against a plain list of records.
#include <gtest/gtest.h>
#include <rapidcheck.h>

#include "tests/tagged/tagged_bytes.h"

namespace {

struct Record {
  std::string name;
  int major;
  int minor;
  std::string body;
  bool written = false;
};
using Records = std::vector<Record>;

rc::Gen<std::string> anyName() {
  return rc::gen::element<std::string>("A", "B", "A\xff", "SIXSIX", "DATA", "MUID", "");
}

// Around what means something: a header, the buffer, what goes past it.
rc::Gen<std::string> anyBody() {
  return rc::gen::map(
      rc::gen::pair(rc::gen::element(0, 1, 11, 12, 13, 400, 32767, 32768, 262131, 262144, 300001),
                    rc::gen::arbitrary<char>()),
      [](const std::pair<int, char>& b) {
        return std::string(static_cast<std::size_t>(b.first), b.second);
      });
}

Record anyRecord() {
  return {*anyName(), *rc::gen::element(1, 2, 255), *rc::gen::element(0, 1, 7), *anyBody()};
}

std::string bytesOf(const Records& records) {
  std::string bytes = qeltest::headTag();
  for (const Record& r : records) bytes += qeltest::record(r.name, r.major, r.minor, r.body);
  return bytes;
}

bool matches(const Record& a, const Record& b) {
  return a.name == b.name && a.major == b.major;
}

// One session of a writer on the file and on the model.
void save(const std::wstring& name, Records& records) {
  MFileTagged file;
  RC_ASSERT(file.OPEN_WRITE(name.c_str()));
  Records fresh;
  const int steps = *rc::gen::inRange(0, 6);
  for (int i = 0; i < steps; ++i) {
    const Record one = anyRecord();
    const auto old = std::find_if(records.begin(), records.end(),
                                  [&](const Record& r) { return matches(r, one) && !r.written; });
    if (*rc::gen::inRange(0, 4) == 0) {
      file.REMOVE_TAGS(MTag(one.name.c_str(), static_cast<unsigned char>(one.major), 0), 0);
      std::erase_if(records, [&](const Record& r) { return matches(r, one); });
      continue;
    }
    if (old != records.end()) old->written = true;
    fresh.push_back(one);
    if (*rc::gen::inRange(0, 4) == 0) file.NEXT_TAG(nullptr, false);
    qeltest::writeTag(file,
                      MTag(one.name.c_str(), static_cast<unsigned char>(one.major),
                           static_cast<unsigned char>(one.minor)),
                      one.body);
  }
  file.CLOSE();
  RC_ASSERT(file.GET_RESULT() == 0U);
  for (const Record& r : records) {
    if (!r.written) fresh.push_back(r);
  }
  records = fresh;
}

}  // namespace

TEST(MFileTaggedProperty, HoldsWhatAPlainListHolds) {
  EXPECT_TRUE(rc::check([] {
    const qeltest::TaggedFolder at;
    Records records;
    const int sessions = *rc::gen::inRange(1, 6);
    for (int i = 0; i < sessions; ++i) {
      save(at.name, records);
      RC_ASSERT(at.bytes() == bytesOf(records));
      RC_ASSERT(at.files().size() == 1U);
    }
  }));
}
