#pragma once

/// The size of a case that is measured twice: "alone", or "with a second thread", which sleeps while the loop runs. The C
/// library takes cheaper ways through a mutex until the first thread is made and not again afterwards, so each is a
/// program of its own: one links Alone.cpp, the other BesideThread.cpp.
extern const char* const Company;
