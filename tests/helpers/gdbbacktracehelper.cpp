// Stops under gdb inside a member function of a class in a namespace, a few frames down, so that
// tst_gdbbacktrace can take gdb's real backtrace apart (Part 3.3). Built with -g -O0.
// Usage: gdbbacktracehelper trap|abort|thread [label]
// The "frame:" comments mark the lines that the frames of this file stand on.
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <thread>

namespace Outer {

class Crasher
{
public:
    int crash(int depth, const char* mode, const char* label)
    {
        if (std::strcmp(mode, "abort") == 0)
            std::abort(); // frame: abort
        std::raise(SIGTRAP); // frame: trap
        return depth + static_cast<int>(std::strlen(label));
    }

    int step(int depth, const char* mode, const char* label)
    {
        return crash(depth + 1, mode, label) + 1; // frame: step
    }
};

int launch(int depth, const char* mode, const char* label)
{
    Crasher crasher;
    return crasher.step(depth + 1, mode, label); // frame: launch
}

} // namespace Outer

int main(int argc, char** argv)
{
    const char* mode = argc > 1 ? argv[1] : "trap";
    const char* label = argc > 2 ? argv[2] : "plain";
    if (std::strcmp(mode, "thread") == 0) {
        std::thread worker(Outer::launch, 1, "trap", label);
        worker.join();
        return 0;
    }
    return Outer::launch(1, mode, label); // frame: main
}
