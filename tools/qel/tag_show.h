#pragma once
// The commands of `qel tag` that only look.

#include <cstdint>
#include <string>
#include <vector>

#include "session.h"

namespace qel::tool {

struct View {
  bool json = false;
  bool hex = false;  // numbers for people, not those in JSON
};

// Each takes native file names, prints to standard output, and raises the session's exit code for
// findings and for files that cannot be read; the others go on.

// The records of each file: at top level, or with `all_levels` the whole tree.
void ListTags(Session& session, const std::vector<std::string>& files, bool all_levels, View view);

void CheckFiles(Session& session, const std::vector<std::string>& files, View view);

// The bodies of the records, as they are.
void CatRecords(Session& session, const std::string& file, const std::vector<std::string>& paths);

// Headers and bodies in hexadecimal; `limit` bytes of each body at the most, -1 for all. Without
// paths the whole file.
void DumpRecords(Session& session, const std::string& file, const std::vector<std::string>& paths,
                 std::int64_t limit, View view);

// Each raw body becomes a file below `folder`, under the path of its record. Without paths all do.
// Existing files are never overwritten.
void ExtractRecords(Session& session, const std::string& file,
                    const std::vector<std::string>& paths, const std::string& folder);

// The body of one record becomes the file `output`, or goes to standard output for "-".
void ExtractRecord(Session& session, const std::string& file, const std::string& path,
                   const std::string& output);

// What differs between two files, by the paths of their records. Memory: an entry for each record.
void DiffFiles(Session& session, const std::string& a, const std::string& b, View view);

}  // namespace qel::tool
