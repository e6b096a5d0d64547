// The escaping shared by the data-source reference text form and the database
// and table identities: parts are separated by "/", so a "/" inside a part is
// written "%2F". A "%" is written "%25" unless it is one of a "%%" pair, which
// is kept so that "%%NAME%%" configuration macros read the same in the text as
// in the part. Reading the text back pairs "%%" from the left before anything
// else, so that writing and reading agree on every input.
//
// Thread safety: pure functions.
#ifndef QZBASE_SRC_PART_ESCAPE_H_
#define QZBASE_SRC_PART_ESCAPE_H_

#include <string>
#include <vector>

namespace qzb_internal {

// True when `text` holds a byte 0 to 31 or 127.
bool hasControlCharacter(const std::string& text);

// Appends `part` to *out in its escaped form.
void appendEscapedPart(const std::string& part, std::string* out);

// Splits `text` at every "/" and unescapes each piece: "%%" stays "%%",
// "%2F" or "%2f" gives "/", "%25" gives "%", any other "%" stays as it is.
std::vector<std::string> splitEscapedParts(const std::string& text);

}  // namespace qzb_internal

#endif  // QZBASE_SRC_PART_ESCAPE_H_
