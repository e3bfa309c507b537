// The parts of previous-version removal that need no system: the old
// uninstaller's command line, the result code in its log, and the pending file
// renames kept across its run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace setuputils {

// The status of pending renames that are not a well-formed REG_MULTI_SZ, as
// the system numbers it (ERROR_INVALID_DATA).
inline constexpr std::uint32_t kMalformedPendingRenames = 13;

// The uninstall string exactly as the property holds it (it is expected to
// end in a blank: none is inserted), the silent switch and the two files, with
// no blank between a file switch and its quotation mark:
//   <uninstall string>-s -f1"<response file>" -f2"<log file>"
std::wstring UninstallCommandLine(std::wstring_view uninstallString, std::wstring_view responseFile,
                                  std::wstring_view logFile);

// The number after the first "ResultCode=" of the log, read as "%d" reads it
// (leading white space, an optional sign, decimal digits). The log is ANSI
// text: it ends at its first zero byte or at the end of the data, whichever
// comes first. Nothing when there is no marker or no number right after it.
// A number beyond the 32-bit range counts as the nearest 32-bit value, so that
// it never reads as 0.
std::optional<std::int32_t> FindResultCode(std::string_view log);

// The data of "PendingFileRenameOperations" as read: `characters` holds the
// `byteCount` bytes read as characters (an odd last byte left out).
struct PendingRenames {
    std::uint32_t status = 0;
    std::wstring operations;
};
// Well formed: an even byte count, at least two characters, and the last two
// both NUL; the operations are then the data without its final NUL (inner
// NULs kept). Otherwise kMalformedPendingRenames, with the data cut at its
// first NUL.
PendingRenames KeepPendingRenames(std::wstring_view characters, std::size_t byteCount);

// The operations saved before the run, followed by those queued during it.
std::wstring MergePendingRenames(std::wstring_view saved, std::wstring_view added);

} // namespace setuputils
