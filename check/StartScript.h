#pragma once

#include <string>

/// @return whether a start script looks as if it started a server through an interpreter: "sh .../X_Server",
///         "python3 X_Server", ". X_Server". The process bears the interpreter's name then.
///
/// Read as a shell splits it into commands: quotes, comments, continued lines and redirections count, and words that run the
/// rest as a command ("exec", "nohup" ...) are passed over. What is in variables, functions and here-documents is not
/// known, so this is a guess. Throws only std::bad_alloc. Threads may call it at once.
bool StartsThroughInterpreter(const std::string& script, const std::string& server);
