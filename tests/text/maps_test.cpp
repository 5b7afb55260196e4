#include <gtest/gtest.h>
#include <rapidcheck.h>

#include <map>
#include <random>
#include <string>
#include <typeinfo>
#include <vector>

#include "qelbase/outside/system/text.h"
#include "qelbase/text/CMapStringI.h"
#include "qelbase/text/MTypeInfo.h"

namespace {

void* number(std::intptr_t n) {
  return reinterpret_cast<void*>(n);
}

std::vector<std::wstring> keysOf(const CMapStringToPtr& map) {
  std::vector<std::wstring> keys;
  CStringW key;
  void* value = nullptr;
  for (POSITION at = map.GetStartPosition(); at;) {
    map.GetNextAssoc(at, key, value);
    keys.emplace_back(key);
  }
  return keys;
}

// Counts how many of its kind live.
class Counted : public CObject {
 public:
  Counted() { ++alive; }
  ~Counted() override { --alive; }
  static inline int alive = 0;
};

}  // namespace

TEST(CMapStringI, FindsKeysUnderAnyCaseAndKeepsThemAsWritten) {
  CMapStringIToPtr map;
  map[L"Alpha"] = number(1);
  map[L"ALPHA"] = number(2);
  map[L"stra\u00DFe \u00C4\u0416\U00010400"] = number(3);
  void* value = nullptr;
  EXPECT_TRUE(map.Lookup(L"aLpHa", value));
  EXPECT_EQ(value, number(2));
  EXPECT_TRUE(map.Lookup(L"STRA\u00DFE \u00E4\u0436\U00010428", value));
  EXPECT_EQ(value, number(3));
  EXPECT_FALSE(map.Lookup(L"Alph", value));
  EXPECT_EQ(value, number(3));
  EXPECT_EQ(keysOf(map),
            (std::vector<std::wstring>{L"Alpha", L"stra\u00DFe \u00C4\u0416\U00010400"}));
  EXPECT_TRUE(map.RemoveKey(L"alpha"));
  EXPECT_FALSE(map.RemoveKey(L"alpha"));
  EXPECT_EQ(map.GetCount(), 1);
}

// Brackets and braces, @ and the backquote are 32 apart like letters, and no letters.
TEST(CMapStringI, FoldsLettersOnly) {
  CMapStringIToPtr map;
  for (wchar_t c = 1; c < 128; ++c) map[std::wstring(3, c).c_str()] = number(c);
  EXPECT_EQ(map.GetCount(), 127 - 26);
}

TEST(CMapStringI, PrefersTheExactKeyThenTheOldest) {
  CMapStringIToPtr map;
  CMapStringToPtr& base = map;
  base[L"key"] = number(1);
  base[L"KEY"] = number(2);
  base[L"Key"] = number(3);
  void* value = nullptr;
  EXPECT_TRUE(map.Lookup(L"KEY", value));
  EXPECT_EQ(value, number(2));
  EXPECT_TRUE(map.Lookup(L"kEY", value));
  EXPECT_EQ(value, number(1));
  EXPECT_TRUE(map.RemoveKey(L"kEY"));
  EXPECT_EQ(keysOf(map), (std::vector<std::wstring>{L"KEY", L"Key"}));
}

TEST(CMapStringI, RemovingTheEntryJustReturnedIsSafe) {
  CMapStringIToString map;
  for (int i = 0; i < 1000; ++i) map[std::to_wstring(i).c_str()] = L"x";
  CStringW key, value;
  int seen = 0;
  for (POSITION at = map.GetStartPosition(); at; ++seen) {
    map.GetNextAssoc(at, key, value);
    EXPECT_TRUE(map.RemoveKey(key));
  }
  EXPECT_EQ(seen, 1000);
  EXPECT_EQ(map.IsEmpty(), 1);
  EXPECT_EQ(map.GetStartPosition(), nullptr);
}

TEST(CMapStringI, BehavesAsAMapOfFoldedKeys) {
  EXPECT_TRUE(rc::check([] {
    const auto key = rc::gen::map(
        rc::gen::container<std::wstring>(rc::gen::elementOf(std::wstring(L"aAbB\u00E4\u00C4[{"))),
        [](std::wstring text) { return text.substr(0, 4); });
    const auto steps = *rc::gen::container<std::vector<std::pair<int, std::wstring>>>(
        rc::gen::pair(rc::gen::inRange(0, 4), key));
    CMapStringIToPtr map;
    std::map<std::wstring, std::pair<std::wstring, void*>> model;
    std::intptr_t n = 0;
    for (const auto& [step, text] : steps) {
      const std::wstring folded = qel::sys::FoldCase(text);
      void* value = nullptr;
      if (step == 0) {
        RC_ASSERT(map.RemoveKey(text.c_str()) == (model.erase(folded) == 1));
      } else if (step == 1) {
        RC_ASSERT(map.Lookup(text.c_str(), value) == model.contains(folded));
        const bool same = !value || value == model[folded].second;
        RC_ASSERT(same);
      } else {
        map[text.c_str()] = number(++n);
        model.try_emplace(folded, text, nullptr).first->second.second = number(n);
      }
    }
    std::vector<std::wstring> stored, keys = keysOf(map);
    for (const auto& [folded, entry] : model) stored.push_back(entry.first);
    std::sort(stored.begin(), stored.end());
    std::sort(keys.begin(), keys.end());
    RC_ASSERT(keys == stored);
  }));
}

// Removed slots are used again, and searches go past them.
TEST(CMapStringI, KeepsEveryKeyWhileManyComeAndGo) {
  std::mt19937 random(1);  // NOLINT: the same in each run
  CMapStringIToPtr map;
  std::map<std::wstring, void*> model;
  for (std::intptr_t step = 1; step <= 100'000; ++step) {
    const std::wstring key = L"key " + std::to_wstring(random() % 3000);
    if (random() % 2 == 0) {
      ASSERT_EQ(map.RemoveKey(key.c_str()), model.erase(key) == 1);
    } else {
      map[key.c_str()] = model[key] = number(step);
    }
  }
  EXPECT_EQ(map.GetCount(), static_cast<std::int64_t>(model.size()));
  for (const auto& [key, expected] : model) {
    void* value = nullptr;
    EXPECT_TRUE(map.Lookup((L"KEY" + key.substr(3)).c_str(), value));
    EXPECT_EQ(value, expected);
  }
}

TEST(CMapStringIToObject, OwnsItsValues) {
  {
    CMapStringIToObject map;
    auto* first = new Counted;
    EXPECT_FALSE(map.Set(L"One", first));
    EXPECT_TRUE(map.Set(L"ONE", first));
    EXPECT_EQ(Counted::alive, 1);
    EXPECT_TRUE(map.Set(L"one", new Counted));
    EXPECT_EQ(Counted::alive, 1);
    EXPECT_TRUE(map.Set(L"one", nullptr));
    EXPECT_EQ(Counted::alive, 0);
    CObject* value = first;
    EXPECT_TRUE(map.Lookup(L"ONE", value));
    EXPECT_EQ(value, nullptr);

    auto* second = new Counted;
    map[L"two"] = second;
    EXPECT_EQ(map.RemoveKey2(L"TWO"), second);
    EXPECT_EQ(map.RemoveKey2(L"TWO"), nullptr);
    EXPECT_EQ(Counted::alive, 1);
    delete second;

    map[L"three"] = new Counted;
    map[L"four"] = new Counted;
    EXPECT_TRUE(map.RemoveKey(L"Three"));
    EXPECT_EQ(Counted::alive, 1);
  }
  EXPECT_EQ(Counted::alive, 0);
}

TEST(MTypeInfo, OrdersTypes) {
  const MTypeInfo a(typeid(int)), b(typeid(int)), c(typeid(std::wstring));
  EXPECT_TRUE(a == b);
  EXPECT_TRUE(a != c);
  EXPECT_NE(a < c, c < a);
  EXPECT_FALSE(a < b);
}
