// Colours on the kiv command line: #RRGGBB, RRGGBB, #RGB, 0xRRGGBB and the CSS colour names.
#ifndef KIV_CLI_COLORS_H
#define KIV_CLI_COLORS_H

#include <string>

namespace kivcli {

// The forms parse_color accepts, for error messages.
extern const char* const kColorForms;

// The colour text names as a COLORREF (red in the low byte); false when it is none of the
// accepted forms. Names are matched without regard to case.
bool parse_color(const std::string& text, unsigned long* colorref);

}  // namespace kivcli

#endif
