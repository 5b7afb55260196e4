#pragma once
// The framework's text classes: CStringW of wide and CStringA of narrow characters.

#include <compare>
#include <cstdarg>
#include <string>
#include <type_traits>
#include <utility>

#include "qelbase/export.h"
#include "qelbase/outside/system/types.h"

// Positions and lengths count characters from 0; a length leaves the terminator out. A null pointer
// counts as an empty text. Positions and counts that lie outside are clamped, but for GetAt, SetAt
// and operator[], which throw std::out_of_range. Zeros inside are kept. Text of the other width is
// converted in the default code page. An object belongs to one thread at a time.
template <typename Char>
class QELBASE_API CStringT {
 public:
  using Text = std::basic_string<Char>;
  using OtherChar = std::conditional_t<std::is_same_v<Char, wchar_t>, char, wchar_t>;

  CStringT() = default;
  CStringT(const Char* text);
  CStringT(const Char* text, int length);
  CStringT(Text text) : m_text(std::move(text)) {}
  explicit CStringT(Char c, int count = 1);
  explicit CStringT(const OtherChar* text);
  explicit CStringT(const CStringT<OtherChar>& text);

  CStringT& operator=(const Char* text) { return *this = CStringT(text); }
  CStringT& operator=(Char c) { return *this = CStringT(c); }
  CStringT& operator=(const OtherChar* text) { return *this = CStringT(text); }
  CStringT& operator=(const CStringT<OtherChar>& text) { return *this = CStringT(text); }
  void SetString(const Char* text) { *this = text; }
  void SetString(const Char* text, int length) { *this = CStringT(text, length); }

  int GetLength() const { return static_cast<int>(m_text.size()); }
  bool IsEmpty() const { return m_text.empty(); }
  void Empty() { m_text.clear(); }
  const Char* GetString() const { return m_text.c_str(); }
  operator const Char*() const { return m_text.c_str(); }  // until the next change

  Char GetAt(int index) const;  // the terminator's index is in range
  Char operator[](int index) const { return GetAt(index); }
  void SetAt(int index, Char c);

  CStringT& operator+=(const CStringT& text);
  CStringT& operator+=(const Char* text);
  CStringT& operator+=(Char c);
  void Append(const Char* text) { *this += text; }
  void Append(const Char* text, int length) { *this += CStringT(text, length); }
  void AppendChar(Char c) { *this += c; }

  CStringT Left(int count) const;
  CStringT Right(int count) const;
  CStringT Mid(int first) const;
  CStringT Mid(int first, int count) const;
  CStringT SpanIncluding(const Char* set) const;  // the longest start made of `set` alone
  CStringT SpanExcluding(const Char* set) const;  // the longest start without any of `set`

  // The position, or -1. An empty text is found at `start`.
  int Find(const Char* text, int start = 0) const;
  int Find(Char c, int start = 0) const;
  int FindOneOf(const Char* set) const;
  int ReverseFind(Char c) const;

  // The next piece between characters of `delimiters`, from `start` on, which moves behind it. At
  // the end: empty, and `start` is -1.
  CStringT Tokenize(const Char* delimiters, int& start) const;

  int Replace(const Char* from,
              const Char* to);  // in one pass; how many; an empty `from` finds none
  int Replace(Char from, Char to);
  int Remove(Char c);                       // how many
  int Insert(int index, const Char* text);  // the new length
  int Insert(int index, Char c);
  int Delete(int index, int count = 1);  // the new length
  void Truncate(int length);

  CStringT& Trim();  // white space, as qel::sys::IsSpace has it
  CStringT& TrimLeft();
  CStringT& TrimRight();
  CStringT& Trim(Char c);
  CStringT& TrimLeft(Char c);
  CStringT& TrimRight(Char c);
  CStringT& Trim(const Char* set);  // any of the characters
  CStringT& TrimLeft(const Char* set);
  CStringT& TrimRight(const Char* set);

  CStringT& MakeUpper();  // simple Unicode mappings, one character to one
  CStringT& MakeLower();
  CStringT& MakeReverse();

  int Compare(const Char* text) const;  // negative, 0 or positive
  int CompareNoCase(const Char* text) const;
  int Collate(const Char* text) const { return Compare(text); }
  int CollateNoCase(const Char* text) const { return CompareNoCase(text); }

  // printf-style, with the letters as outside/system/text.h tells them. A refused format gives an
  // empty text, or appends nothing.
  void Format(const Char* format, ...);
  void FormatV(const Char* format, va_list args);
  void AppendFormat(const Char* format, ...);
  void AppendFormatV(const Char* format, va_list args);

  // A string of a module's string table; without a module, of the program's. False, and the old
  // text kept, if it is missing or empty.
  bool LoadStringW(HINSTANCE module, UINT id);
  bool LoadStringW(UINT id) { return LoadStringW(nullptr, id); }

  // Room for `length` characters and the terminator, to be written through the pointer; the content
  // is kept. ReleaseBuffer then ends the text at `length`, or at the first zero for -1.
  Char* GetBuffer(int length = 0);
  Char* GetBufferSetLength(int length);
  void ReleaseBuffer(int length = -1);
  void Preallocate(int length);
  void FreeExtra() { m_text.shrink_to_fit(); }

  friend CStringT operator+(CStringT a, const CStringT& b) { return std::move(a += b); }
  friend CStringT operator+(CStringT a, const Char* b) { return std::move(a += b); }
  friend CStringT operator+(const Char* a, const CStringT& b) { return CStringT(a) += b; }
  friend CStringT operator+(CStringT a, Char b) { return std::move(a += b); }
  friend CStringT operator+(Char a, const CStringT& b) { return CStringT(a) += b; }

  friend bool operator==(const CStringT& a, const CStringT& b) { return a.m_text == b.m_text; }
  friend bool operator==(const CStringT& a, const Char* b) { return a.Compare(b) == 0; }
  friend std::strong_ordering operator<=>(const CStringT& a, const CStringT& b) {
    return a.m_text.compare(b.m_text) <=> 0;
  }
  friend std::strong_ordering operator<=>(const CStringT& a, const Char* b) {
    return a.Compare(b) <=> 0;
  }

 private:
  std::size_t _Clamped(int position) const;

  Text m_text;
};

extern template class CStringT<wchar_t>;
extern template class CStringT<char>;

using CStringW = CStringT<wchar_t>;
using CStringA = CStringT<char>;
