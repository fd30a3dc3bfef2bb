#include "vfutilities.h"

namespace Crosscutting {

// ---- Part 7.2: backtrace capture --------------------------------------------------------


// ---- Part 8.1: external commands --------------------------------------------------------


// ---- Part 8.2: file and path utilities --------------------------------------------------


// ---- Part 8.3: XML and metadata utilities -----------------------------------------------


// ---- Part 8.4: JSON documents -----------------------------------------------------------


} // namespace Crosscutting
