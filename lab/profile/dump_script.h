// A script that a phone runs to tell what it is made of.
#pragma once

#include <string>

namespace lab {

// Plain sh for the phone's own shell and tools: prints frequency tables, clusters, GPU, buses,
// governors, clamps, and what every node of the plug-in's tables reads, a line each. It only reads,
// and goes on where a node cannot be read. The environment's TARQUEL_ROOT stands before every path.
//
//   tarquel-lab dump 1                 the first line
//   prop NAME VALUE, kernel RELEASE
//   read PATH VALUE                    with the value's lines and blanks as single blanks
//   missing PATH
//   unreadable PATH
//   end COUNT                          the last one; how many lines there are between
std::string DumpScript();

}  // namespace lab
