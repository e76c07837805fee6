#pragma once
// A sample's sections made into an applet's functions and bindings, through the SDK calls.

#include <string>
#include <vector>

#include "catalogues/sample_sections.h"
#include "platform/export.h"

namespace ruvo {

// Splits the sample and checks its names; false with `error` when it cannot become an applet.
RUVO_API bool checkSample(const std::string& code, std::vector<SampleSection>* sections, std::string* error);

// Makes "mainRun" and each section's function (binding it where it is a handler) in the applet
// and sets its body; false with `error` at the first call that fails.
RUVO_API bool applySample(const std::string& applet, const std::vector<SampleSection>& sections,
                          std::string* error);

}  // namespace ruvo
