// The clipboard without a desktop: each text is a file, replaced as a whole.

#include <cerrno>
#include <utility>

#include "qelbase/outside/system/clipboard_internal.h"
#include "qelbase/outside/system/descriptor_internal.h"
#include "qelbase/outside/system/errors.h"

namespace qel::sys::clipboard {

namespace {

class Folder : public Place {
 public:
  explicit Folder(std::string native) : m_native(std::move(native)) {}

  bool has(UINT format) override {
    struct stat status {};
    return Calls().lstat(fileOf(format).c_str(), &status) == 0 && S_ISREG(status.st_mode);
  }

  DWORD read(UINT format, std::string& text) override {
    const Descriptor file = Descriptor::open(fileOf(format), O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
    struct stat status {};
    if (!file || Calls().fstat(file.get(), &status) != 0) return lastCode();
    if (!S_ISREG(status.st_mode)) return ERROR_FILE_NOT_FOUND;
    if (std::cmp_greater(status.st_size, kMostBytes)) return ERROR_FILE_TOO_LARGE;
    text.resize(static_cast<std::size_t>(status.st_size));
    const ssize_t size = ReadUpTo(file.get(), text.data(), text.size());
    if (size < 0) return lastCode();
    text.resize(static_cast<std::size_t>(size));
    return ERROR_SUCCESS;
  }

  DWORD empty() override {
    for (const UINT format : kFormats) {
      if (Calls().unlink(fileOf(format).c_str()) != 0 && errno != ENOENT) return lastCode();
    }
    return ERROR_SUCCESS;
  }

  DWORD put(const Texts& texts) override {
    for (const auto& [format, text] : texts) {
      const DWORD code = write(fileOf(format), text);
      if (code != ERROR_SUCCESS) return code;
    }
    return ERROR_SUCCESS;
  }

 private:
  std::string fileOf(UINT format) const { return m_native + "/format-" + std::to_string(format); }

  static DWORD lastCode() { return ErrorFromErrno(errno); }

  // Only who has the clipboard open writes, so that one passing name does.
  static DWORD write(const std::string& name, const std::string& text) {
    if (text.size() > kMostBytes) return ERROR_FILE_TOO_LARGE;
    const std::string passing = name + ".new";
    Descriptor file = Descriptor::open(passing, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0600);
    if (file && WriteAll(file.get(), text.data(), text.size()) && file.close() &&
        Calls().rename(passing.c_str(), name.c_str()) == 0) {
      return ERROR_SUCCESS;
    }
    const DWORD code = lastCode();
    Calls().unlink(passing.c_str());
    return code;
  }

  std::string m_native;
};

}  // namespace

std::unique_ptr<Place> FolderPlace(std::string native_folder) {
  return std::make_unique<Folder>(std::move(native_folder));
}

}  // namespace qel::sys::clipboard
