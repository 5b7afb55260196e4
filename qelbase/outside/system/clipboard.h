#pragma once
// The clipboard: text that passes between programs.
//
// On an X11 desktop (DISPLAY) it is the desktop's own clipboard: other programs paste what is set
// here and the other way round, and the text stays after the end of the program that set it.
// Without one it is a clipboard that the user's programs share on the machine, in
// $XDG_RUNTIME_DIR/qelbase/clipboard, else below ~/.local/state. docs/decisions/clipboard.md tells
// how.
//
// It is opened by one thread of one of the user's programs at a time, who closes it, or whose end
// does. Only what was set is there: formats are not made from each other. Text from other programs
// counts as format 13; its line ends become carriage return and line feed, and those of text that
// is set become a bare line feed for them alone.
//
// Calls are safe on any thread. Those that need the clipboard open give 1418 on any thread but the
// opener's. A program that holds the desktop's clipboard and doesn't answer costs a second when it
// is asked what it has, and 5 seconds, at most 60, when it is asked for its text (1460 then). 112,
// 5 and the like tell of a folder that can't be written.

#include "qelbase/export.h"
#include "qelbase/outside/system/memory.h"
#include "qelbase/outside/system/types.h"

namespace qel::sys {

inline constexpr UINT CF_TEXT = 1;          // in the default code page, with a zero behind it
inline constexpr UINT CF_UNICODETEXT = 13;  // 16-bit little-endian units, with a zero behind them

// 0 and 5, at once, if somebody has it open: another program, another thread, or the caller.
// `owner` is not looked at.
[[nodiscard]] QELBASE_API BOOL OpenClipboard(HWND owner);
QELBASE_API BOOL CloseClipboard();

// Takes everything off, and frees the blocks that this thread set or was given.
QELBASE_API BOOL EmptyClipboard();

// Whether there is text in a format; any other than the two above is never there. Needs no open
// clipboard.
[[nodiscard]] QELBASE_API BOOL IsClipboardFormatAvailable(UINT format);

// Puts a block of GlobalAlloc on the clipboard, its text up to the first zero. Gives the block,
// which is the clipboard's from now on: it may be read until the clipboard is closed. Null and the
// last error on failure, and the block stays the caller's: 6 for no block, or one that is the
// clipboard's already, 87 for another format, 2 if the program that keeps texts for the desktop is
// missing.
[[nodiscard]] QELBASE_API HGLOBAL SetClipboardData(UINT format, HGLOBAL block);

// The text, in a block that stays the clipboard's: it may be read until the clipboard is emptied or
// closed. Its closing zero is always there. Null and 2 if there is none in this format, 109 if the
// program that had it ended meanwhile.
[[nodiscard]] QELBASE_API HGLOBAL GetClipboardData(UINT format);

}  // namespace qel::sys
