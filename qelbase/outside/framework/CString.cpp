#include "qelbase/outside/framework/CString.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "qelbase/outside/system/resources.h"
#include "qelbase/outside/system/text.h"

namespace {

template <typename Char>
const Char* orEmpty(const Char* text) {
  static constexpr Char empty[] = {0};
  return text ? text : empty;
}

std::wstring converted(const char* text, std::size_t length) {
  return qel::sys::Widen({text, length});
}

std::string converted(const wchar_t* text, std::size_t length) {
  return qel::sys::Narrow({text, length});
}

int positionOf(std::size_t found) {
  return found == std::string::npos ? -1 : static_cast<int>(found);
}

bool isSpace(wchar_t c) {
  return qel::sys::IsSpace(c);
}
// A byte from 80 up is part of a character, if it is text at all.
bool isSpace(char c) {
  return static_cast<unsigned char>(c) < 0x80 && qel::sys::IsSpace(c);
}

void mapAll(std::wstring& text, wchar_t (*map)(wchar_t)) {
  std::transform(text.begin(), text.end(), text.begin(), map);
}

void mapAll(std::string& text, wchar_t (*map)(wchar_t)) {
  std::wstring wide = qel::sys::Widen(text);
  mapAll(wide, map);
  text = qel::sys::Narrow(wide);
}

int compareNoCase(const std::wstring& a, const wchar_t* b) {
  return qel::sys::CompareNoCase(a, b);
}

int compareNoCase(const std::string& a, const char* b) {
  return qel::sys::CompareNoCase(qel::sys::Widen(a), qel::sys::Widen(b));
}

template <typename Text, typename Condition>
void trimLeft(Text& text, Condition goes) {
  text.erase(text.begin(), std::find_if_not(text.begin(), text.end(), goes));
}

template <typename Text, typename Condition>
void trimRight(Text& text, Condition goes) {
  text.erase(std::find_if_not(text.rbegin(), text.rend(), goes).base(), text.end());
}

// Whether a character is in a zero-terminated set.
template <typename Char>
auto isIn(const Char* set) {
  return [text = std::basic_string_view<Char>(orEmpty(set))](Char c) {
    return text.find(c) != text.npos;
  };
}

}  // namespace

template <typename Char>
CStringT<Char>::CStringT(const Char* text) : m_text(orEmpty(text)) {}

template <typename Char>
CStringT<Char>::CStringT(const Char* text, int length) {
  if (text && length > 0) m_text.assign(text, static_cast<std::size_t>(length));
}

template <typename Char>
CStringT<Char>::CStringT(Char c, int count)
    : m_text(static_cast<std::size_t>(std::max(count, 0)), c) {}

template <typename Char>
CStringT<Char>::CStringT(const OtherChar* text)
    : m_text(converted(orEmpty(text), std::char_traits<OtherChar>::length(orEmpty(text)))) {}

template <typename Char>
CStringT<Char>::CStringT(const CStringT<OtherChar>& text)
    : m_text(converted(text.GetString(), static_cast<std::size_t>(text.GetLength()))) {}

template <typename Char>
std::size_t CStringT<Char>::_Clamped(int position) const {
  return position < 0 ? 0 : std::min(static_cast<std::size_t>(position), m_text.size());
}

template <typename Char>
Char CStringT<Char>::GetAt(int index) const {
  if (index < 0 || index > GetLength()) throw std::out_of_range("CString::GetAt");
  return m_text[static_cast<std::size_t>(index)];
}

template <typename Char>
void CStringT<Char>::SetAt(int index, Char c) {
  if (index < 0 || index >= GetLength()) throw std::out_of_range("CString::SetAt");
  m_text[static_cast<std::size_t>(index)] = c;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::operator+=(const CStringT& text) {
  m_text += text.m_text;
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::operator+=(const Char* text) {
  m_text += orEmpty(text);
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::operator+=(Char c) {
  m_text += c;
  return *this;
}

template <typename Char>
CStringT<Char> CStringT<Char>::Left(int count) const {
  return m_text.substr(0, _Clamped(count));
}

template <typename Char>
CStringT<Char> CStringT<Char>::Right(int count) const {
  return m_text.substr(m_text.size() - _Clamped(count));
}

template <typename Char>
CStringT<Char> CStringT<Char>::Mid(int first) const {
  return m_text.substr(_Clamped(first));
}

template <typename Char>
CStringT<Char> CStringT<Char>::Mid(int first, int count) const {
  return m_text.substr(_Clamped(first), static_cast<std::size_t>(std::max(count, 0)));
}

template <typename Char>
CStringT<Char> CStringT<Char>::SpanIncluding(const Char* set) const {
  return m_text.substr(0, m_text.find_first_not_of(orEmpty(set)));
}

template <typename Char>
CStringT<Char> CStringT<Char>::SpanExcluding(const Char* set) const {
  return m_text.substr(0, m_text.find_first_of(orEmpty(set)));
}

template <typename Char>
int CStringT<Char>::Find(const Char* text, int start) const {
  return start < 0 ? -1 : positionOf(m_text.find(orEmpty(text), static_cast<std::size_t>(start)));
}

template <typename Char>
int CStringT<Char>::Find(Char c, int start) const {
  return start < 0 ? -1 : positionOf(m_text.find(c, static_cast<std::size_t>(start)));
}

template <typename Char>
int CStringT<Char>::FindOneOf(const Char* set) const {
  return positionOf(m_text.find_first_of(orEmpty(set)));
}

template <typename Char>
int CStringT<Char>::ReverseFind(Char c) const {
  return positionOf(m_text.rfind(c));
}

template <typename Char>
CStringT<Char> CStringT<Char>::Tokenize(const Char* delimiters, int& start) const {
  const auto from = start < 0 ? Text::npos : static_cast<std::size_t>(start);
  const std::size_t first =
      from == Text::npos ? from : m_text.find_first_not_of(orEmpty(delimiters), from);
  if (first == Text::npos) {
    start = -1;
    return {};
  }
  const std::size_t end = std::min(m_text.find_first_of(orEmpty(delimiters), first), m_text.size());
  start = static_cast<int>(std::min(end + 1, m_text.size()));
  return m_text.substr(first, end - first);
}

template <typename Char>
int CStringT<Char>::Replace(const Char* from, const Char* to) {
  const Text search = orEmpty(from);
  if (search.empty()) return 0;
  Text result;
  int count = 0;
  std::size_t done = 0;
  for (std::size_t at = m_text.find(search); at != Text::npos; at = m_text.find(search, done)) {
    result.append(m_text, done, at - done).append(orEmpty(to));
    done = at + search.size();
    ++count;
  }
  if (count > 0) m_text = result.append(m_text, done);
  return count;
}

template <typename Char>
int CStringT<Char>::Replace(Char from, Char to) {
  const auto count = std::count(m_text.begin(), m_text.end(), from);
  std::replace(m_text.begin(), m_text.end(), from, to);
  return from == to ? 0 : static_cast<int>(count);
}

template <typename Char>
int CStringT<Char>::Remove(Char c) {
  return static_cast<int>(std::erase(m_text, c));
}

template <typename Char>
int CStringT<Char>::Insert(int index, const Char* text) {
  m_text.insert(_Clamped(index), Text(orEmpty(text)));
  return GetLength();
}

template <typename Char>
int CStringT<Char>::Insert(int index, Char c) {
  m_text.insert(_Clamped(index), 1, c);
  return GetLength();
}

template <typename Char>
int CStringT<Char>::Delete(int index, int count) {
  m_text.erase(_Clamped(index), static_cast<std::size_t>(std::max(count, 0)));
  return GetLength();
}

template <typename Char>
void CStringT<Char>::Truncate(int length) {
  m_text.resize(_Clamped(length));
}

template <typename Char>
CStringT<Char>& CStringT<Char>::Trim() {
  return TrimRight().TrimLeft();
}

template <typename Char>
CStringT<Char>& CStringT<Char>::TrimLeft() {
  trimLeft(m_text, [](Char c) { return isSpace(c); });
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::TrimRight() {
  trimRight(m_text, [](Char c) { return isSpace(c); });
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::Trim(Char c) {
  return TrimRight(c).TrimLeft(c);
}

template <typename Char>
CStringT<Char>& CStringT<Char>::TrimLeft(Char c) {
  trimLeft(m_text, [c](Char other) { return other == c; });
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::TrimRight(Char c) {
  trimRight(m_text, [c](Char other) { return other == c; });
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::Trim(const Char* set) {
  return TrimRight(set).TrimLeft(set);
}

template <typename Char>
CStringT<Char>& CStringT<Char>::TrimLeft(const Char* set) {
  trimLeft(m_text, isIn(set));
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::TrimRight(const Char* set) {
  trimRight(m_text, isIn(set));
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::MakeUpper() {
  mapAll(m_text, qel::sys::ToUpper);
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::MakeLower() {
  mapAll(m_text, qel::sys::ToLower);
  return *this;
}

template <typename Char>
CStringT<Char>& CStringT<Char>::MakeReverse() {
  std::reverse(m_text.begin(), m_text.end());
  return *this;
}

template <typename Char>
int CStringT<Char>::Compare(const Char* text) const {
  return m_text.compare(orEmpty(text));
}

template <typename Char>
int CStringT<Char>::CompareNoCase(const Char* text) const {
  return compareNoCase(m_text, orEmpty(text));
}

template <typename Char>
void CStringT<Char>::Format(const Char* format, ...) {
  va_list args;
  va_start(args, format);
  FormatV(format, args);
  va_end(args);
}

template <typename Char>
void CStringT<Char>::FormatV(const Char* format, va_list args) {
  Text text;  // apart, since the arguments may point into this one
  qel::sys::AppendFormatV(text, format, args);
  m_text = std::move(text);
}

template <typename Char>
void CStringT<Char>::AppendFormat(const Char* format, ...) {
  va_list args;
  va_start(args, format);
  AppendFormatV(format, args);
  va_end(args);
}

template <typename Char>
void CStringT<Char>::AppendFormatV(const Char* format, va_list args) {
  Text text;
  qel::sys::AppendFormatV(text, format, args);
  m_text += text;
}

template <typename Char>
Char* CStringT<Char>::GetBuffer(int length) {
  if (length > GetLength()) m_text.resize(static_cast<std::size_t>(length));
  return m_text.data();
}

template <typename Char>
Char* CStringT<Char>::GetBufferSetLength(int length) {
  m_text.resize(static_cast<std::size_t>(std::max(length, 0)));
  return m_text.data();
}

template <typename Char>
void CStringT<Char>::ReleaseBuffer(int length) {
  m_text.resize(length < 0 ? std::min(m_text.find(Char{}), m_text.size()) : _Clamped(length));
}

template <typename Char>
void CStringT<Char>::Preallocate(int length) {
  m_text.reserve(static_cast<std::size_t>(std::max(length, 0)));
}

template <typename Char>
bool CStringT<Char>::LoadStringW(HINSTANCE module, UINT id) {
  std::wstring text;
  if (!qel::sys::LoadStringW(module, id, text)) return false;
  *this = CStringT(CStringT<wchar_t>(text));
  return true;
}

template class CStringT<wchar_t>;
template class CStringT<char>;
