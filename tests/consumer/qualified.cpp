// The qualified include form, which keeps a program's include path unambiguous. A file of its own,
// so that the include guard of the plain form in main.cpp cannot hide a path that does not resolve.
#include <crosscutting/vfcrosscutting.h>

StatusCode qualifiedFileNotFound()
{
    return Crosscutting::VfStatusCodes::FileNotFound;
}
