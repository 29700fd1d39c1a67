// What the library and the host's client must spell alike: the commands that
// start and end the interpreter, the tokens that answer a start, and the
// fields of the start request.
#pragma once

#include <array>

namespace interprocess::pylnk::protocol {

inline constexpr const char* kStartCommand = "attemptToStartPython";
inline constexpr const char* kCloseCommand = "pyClose";

// A start is answered with one of these, as a char array.
inline constexpr const char* kSuccessToken = "vx_success_token_for_oop_python";
inline constexpr const char* kEmptyToken = "vx_empty_token_for_oop_python";      // load failed
inline constexpr const char* kDiscardToken = "vx_discard_token_for_oop_python";  // after pyClose

// The start request: a 1 by 1 struct whose fields are char arrays.
namespace start_field {
inline constexpr const char* kExecutable = "executable";
inline constexpr const char* kLibrary = "library";
inline constexpr const char* kHome = "home";
inline constexpr const char* kPath = "path";
inline constexpr const char* kVersion = "version";
inline constexpr const char* kLocation = "qlbuffer_location";  // the library's module folder
}  // namespace start_field

inline constexpr std::array<const char*, 6> kStartFields = {
    start_field::kExecutable, start_field::kLibrary, start_field::kHome,
    start_field::kPath,       start_field::kVersion, start_field::kLocation};

}  // namespace interprocess::pylnk::protocol
