#pragma once
// Changes to a tagged file, made on a copy beside it that takes its place when it is whole.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tag_path.h"

namespace qel::tool {

struct Version {
  unsigned char major = 0;
  unsigned char minor = 0;
};

// The current format version.
Version CurrentVersion();

struct EditOptions {
  bool force = false;  // go on with a damaged file
};

// Makes the record at `path` have the bytes of `input` ("-" is standard input) as its body. Records
// on the path that do not exist are appended to their level, with `version` or else the file's; a
// file that does not exist is made. The others keep their versions. Throws Trouble; the file then
// is as it was.
void PutRecord(const std::string& native, const std::string& path, const std::string& input,
               std::optional<Version> version, EditOptions options);

// Takes the records at `paths` out, with all that they hold.
void RemoveRecords(const std::string& native, const std::vector<std::string>& paths,
                   EditOptions options);

// What a conversion came to.
enum class Converted { kDone, kAlready };

// Brings the file to a newer major version: every top-level record takes the version, and its old
// body moves into a DATA tag inside that keeps the old one. `dropped` hears of what a damaged file
// has that is no whole record, and that the new file lacks.
Converted ConvertFile(const std::string& native, Version version, EditOptions options,
                      const TagWalker::Report& dropped);

}  // namespace qel::tool
