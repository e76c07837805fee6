#pragma once
// How a sample's text maps to an applet's functions.
//
// A sample is C++ text. A line that begins (after blanks) with "//@" starts a section, whose
// body runs to the next such line:
//   //@ main                   the body of the main function "mainRun"
//   //@ globals                the global definitions (function "global_define")
//   //@ start NAME             a measurement start handler NAME
//   //@ stop NAME              a measurement stop handler NAME
//   //@ rx|tx|pretx KEY ID     a CAN binding; the body of on_can_rx_KEY, on_can_tx_KEY, ...
//   //@ timer KEY MS           a timer; the body of on_KEY_timer
//   //@ key KEY PART...        a shortcut; the body of on_shortcut_KEY
//   //@ function NAME [PARAMS] a self-defined function "s32 NAME(PARAMS)"
// Text before the first marker, if not blank, is the body of "mainRun"; so a sample without
// markers is one main body, as the editor pastes it.

#include <string>
#include <vector>

#include "platform/export.h"

namespace ruvo {

struct SampleSection {
    std::string kind;                // main, globals, start, stop, rx, tx, pretx, timer, key, function
    std::string name;                // NAME or KEY; empty for main and globals
    unsigned long long number = 0;   // the CAN id or the timer interval
    std::vector<std::string> parts;  // the shortcut's parts
    std::string params;              // the parameter text of a function
    std::string body;
    int line = 0;                    // of the marker, 1-based; 0 for text before any marker
};

// Splits `text` into sections; false with `error` ("line N: ...") for a malformed marker.
RUVO_API bool splitSample(const std::string& text, std::vector<SampleSection>* out, std::string* error);

}  // namespace ruvo
