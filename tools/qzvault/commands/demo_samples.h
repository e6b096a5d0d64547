// The sample files of the definition plug-in (plugins/defs/samples), compiled
// into the tool by embed_samples.cmake so that the demo needs nothing
// installed.
#ifndef QZVAULT_TOOL_COMMANDS_DEMO_SAMPLES_H_
#define QZVAULT_TOOL_COMMANDS_DEMO_SAMPLES_H_

#include <cstddef>

namespace qzvtool {

struct DemoSample {
  const char* path;  // relative, with "/" ("Jobs/Definitions/x.job.def")
  const unsigned char* bytes;
  std::size_t size;
};

// Sorted by path; demoSampleCount() entries (none when the samples were
// missing at build time).
const DemoSample* demoSamples();
std::size_t demoSampleCount();

}  // namespace qzvtool

#endif  // QZVAULT_TOOL_COMMANDS_DEMO_SAMPLES_H_
