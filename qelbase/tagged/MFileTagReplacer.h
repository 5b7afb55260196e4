#pragma once
// Text templates: a file that is copied line by line while markers are replaced.

#include <string>
#include <vector>

#include "qelbase/export.h"
#include "qelbase/outside/components/MFile.h"
#include "qelbase/outside/framework/CString.h"

// One replacement rule.
struct MReplaceTag {
  CStringA m_search;       // the marker
  CStringA m_replacement;  // what takes its place
  bool m_last = true;      // false: a line in which this rule fired is written once more
  bool m_keep = true;      // false: the rule is used up when it has fired
};

// The output file, which the caller opens for writing as any MFile. Several rules of one marker,
// each used up when it fires and all but the last asking for another line, make a list of one line.
//
// Rules act in their order, each on the result of those before. A rule that is kept is applied
// again while the line still holds its marker. Two kinds of kept rules would never come to an end,
// and are taken as a careful caller would have made them: one that isn't last counts as last in
// ReplaceAllTagsInFile; one whose replacement brings its marker back is applied once a line, if the
// replacement holds the marker itself, and otherwise until the line is 1 MiB longer or as many
// times as it has characters.
class QELBASE_API MFileTagReplacer : public MFile {
 public:
  MFileTagReplacer();
  ~MFileTagReplacer() override;

  // Adds a rule, which now belongs to this object. Null is ignored.
  void Append(MReplaceTag* tag);
  void ClearTags();  // a run's working copies stay
  // Makes a new set of working copies.
  void ResetTagList();

  // Applies the working copies to `text` (null counts as empty), and uses them up; true unless a
  // rule that isn't last has fired. Without working copies `result` is `text`.
  bool ReplaceAllTagsInString(const char* text, CStringA& result);

  // Copies `source` from its position on, each line with its replacements, and always gives true;
  // GET_RESULT tells whether something failed. Lines end in a carriage return, and may be of any
  // length; a line feed behind it opens the next line. What follows the last carriage return is
  // copied unchanged, up to 4096 bytes of it.
  bool ReplaceAllTagsInFile(MFile& source);

 protected:
  void _ClearCopyTags();

 private:
  class Template;
  struct Outcome {
    bool again = false;       // a rule that is used up, and isn't last, has fired
    bool kept_again = false;  // a rule that is kept, and isn't last, has fired
  };
  Outcome Replace(std::string& line);
  void WriteLine(const std::string& line);

  std::vector<MReplaceTag*> m_tags;       // owned
  std::vector<MReplaceTag*> m_copy_tags;  // owned: what a run has not used up
};
