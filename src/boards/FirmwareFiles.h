#pragma once

#include <QString>
#include <QStringList>

// Finding the firmware image files beside the program and reading what their names say.
//
// A file-name pattern from the settings, such as "FW_MAINBOARD_XXX_CRC", has a fixed prefix (the
// text before its first "XXX"), three version digits where "XXX" stands, and a rest that is not
// evaluated. A file matches when its name contains the prefix and ends in ".bin"; names are
// compared without regard to case on every system, so "fw_mainboard_102.BIN" matches as well as
// "OLD_FW_MAINBOARD_100.bin".
//
// Free functions without state; callable from any thread.
namespace modHelper {

// The extension of firmware image files.
inline constexpr QStringView kFirmwareExtension = u"bin";

// The text of the pattern before its first "XXX"; the whole pattern when it has none.
QString PatternPrefix(const QString &pattern);

// The newest firmware file for the pattern in dir (the program folder): the greatest name that
// ListFiles finds for the pattern's prefix and the extension "bin". The name without directory;
// empty when no file matches.
QString FindNewestFile(const QString &dir, const QString &pattern);

// The names (without directory) of the files in dir that match "*" + prefix + "*." + extension
// ("*." when the prefix is blank, "*" for an empty extension), without regard to case and not
// recursive; sorted with SortStrings when there is more than one.
QStringList ListFiles(const QString &dir, const QString &prefix, const QString &extension);

// The firmware version in a file name: every occurrence of the pattern's prefix removed (without
// regard to case), blanks trimmed, then the first three characters as first + "." + next two:
// "FW_MAINBOARD_102_Y.bin" gives "1.02". Empty when fewer than three characters remain.
QString VersionFromFileName(const QString &fileName, const QString &pattern);

// Sorts the list in place, ascending by upper-case text.
void SortStrings(QStringList &list);

// The name after the last path separator (directory false; the whole path when there is none) or
// the part up to and including it (directory true; empty when there is none). The separator is
// the backslash, and on systems other than Windows also "/".
QString SplitPath(const QString &path, bool directory);

// True when path names an existing file (not a folder); false for an empty path.
bool FileExists(const QString &path);

} // namespace modHelper
