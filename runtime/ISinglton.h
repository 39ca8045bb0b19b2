#pragma once

/// Base of all singletons: what the registry needs to delete one at exit, a virtual destructor.
///
/// The spelling is the system's own. Owns nothing. Not copied: there is one of each.
class ISinglton {
public:
    ISinglton() = default;
    ISinglton(const ISinglton&) = delete;
    ISinglton& operator=(const ISinglton&) = delete;
    virtual ~ISinglton();
};
