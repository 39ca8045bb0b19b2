#pragma once

#include "protocol/ProtocolTypeInfo.h"

#include <vector>

/// Starts or stops the service of every enabled protocol, once, in list order.
///
/// For a disabled record it prints "Protocol(%s) disable\n". For an enabled one it lists the service directory anew (a
/// service that has just started may have changed it), composes the command (`ServiceCommand`), runs it through
/// system(3) and prints "Run LoadServcie(%s) \n" or "Stop LoadServcie(%s) \n" with the command; the spelling and the
/// blank are what readers of the console know. A directory that cannot be listed counts as an empty one. The status of
/// a command is not looked at; a start program that does not return blocks the run there.
///
/// A command of more than 63 characters is refused: nothing is run or printed on standard output, one line on standard
/// error names the protocol, the file and the limit, and the next record goes on.
///
/// @param mode 1 starts, 0 stops, any other value lists the directory and does nothing else.
/// Standard output is flushed after each line and before each command. Output that cannot be written (a full disk, a
/// closed descriptor) changes nothing, but a pipe without a reader ends the process by SIGPIPE, as POSIX has it. Throws
/// only std::bad_alloc. Main thread only: system(3) handles the process's signals.
void RunProtocolServices(const std::vector<ProtocolTypeInfo>& records, int mode);
