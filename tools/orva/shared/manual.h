// SPDX-License-Identifier: Apache-2.0
#ifndef ORVA_TOOLS_SHARED_MANUAL_H_
#define ORVA_TOOLS_SHARED_MANUAL_H_

namespace CLI {
class App;
}

namespace orva {

/// Does what the build and the packages ask the program for, from the text that --help shows:
///   orva --completion bash   prints a completion script
///   orva --man FOLDER        writes orva.1 and a page for each command there
/// False, with nothing done, for any other command line. Throws Failure where a page cannot be written.
bool WroteDocuments(const CLI::App& app, int argc, const char* const* argv);

}  // namespace orva

#endif  // ORVA_TOOLS_SHARED_MANUAL_H_
