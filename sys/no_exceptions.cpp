// setup.exe and the single file's stub use no C++ exceptions and are built
// with -fno-exceptions. What the standard library would still throw (memory
// exhausted, a string or container asked to grow past its limit, an empty
// std::function called) ends the process at once with kRuntimeFailureExit,
// as an exception that nobody catches would end it. Linked into those two
// images only (not into qmcore, whose tests keep the library's own), it keeps
// the unwinder, the exception classes and the demangling terminate handler,
// about half of the static C++ runtime's size, out of them.
#include <windows.h>

#include <bits/functexcept.h>
#include <cstdlib>
#include <new>

namespace {

constexpr UINT kRuntimeFailureExit = 255;

[[noreturn]] void RuntimeFailure() {
  ::TerminateProcess(::GetCurrentProcess(), kRuntimeFailureExit);
  std::abort();  // not reached
}

}  // namespace

void* operator new(std::size_t size) {
  if (void* memory = std::malloc(size ? size : 1)) return memory;
  RuntimeFailure();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace std {
void __throw_bad_alloc() { RuntimeFailure(); }
void __throw_bad_array_new_length() { RuntimeFailure(); }
void __throw_bad_cast() { RuntimeFailure(); }
void __throw_bad_function_call() { RuntimeFailure(); }
void __throw_length_error(const char*) { RuntimeFailure(); }
void __throw_logic_error(const char*) { RuntimeFailure(); }
void __throw_invalid_argument(const char*) { RuntimeFailure(); }
void __throw_out_of_range(const char*) { RuntimeFailure(); }
void __throw_out_of_range_fmt(const char*, ...) { RuntimeFailure(); }
void __throw_runtime_error(const char*) { RuntimeFailure(); }
}  // namespace std

namespace __gnu_cxx {
void __verbose_terminate_handler() { RuntimeFailure(); }
}  // namespace __gnu_cxx
