// Whether the commands that the library has the shell run are done by this process itself.
#ifndef KELO_TOOLS_CRASH_QUICK_COMMANDS_HPP
#define KELO_TOOLS_CRASH_QUICK_COMMANDS_HPP

namespace kelo::crash {

// Histories and recoveries are recorded with the real shell and its real commands. A restart whose calls nobody
// looks at makes the same changes to its files without them: starting them takes most of its time.
void use_quick_commands(bool quick);

}  // namespace kelo::crash

#endif  // KELO_TOOLS_CRASH_QUICK_COMMANDS_HPP
