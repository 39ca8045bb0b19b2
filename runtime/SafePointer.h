#pragma once

#include "runtime/BaseSafePointer.h"
#include "runtime/SafePointerPool.h"
#include "runtime/SafePointerRecord.h"
#include "runtime/WyMutex.h"
#include "runtime/WyRuntimeError.h"

#include <typeinfo>

/// An owning pointer whose count of references lives in a record of `SafePointerPool`, and which checks at every copy,
/// assignment and release that the record still describes its object.
///
/// Owns:    a share of the object; the last pointer to let go deletes it with T's destructor.
/// States:  empty (made by default), live, or spent (it was the last reference: no object, the record still known).
///          Empty and spent pointers may be released and assigned to, not copied, assigned from or used, and there is
///          no way to ask for the state: a container of pointers holds live ones only, since it copies them when it
///          grows.
/// Fails:   with `WyRuntimeError`. Misuse is printed first ("SafePointer Report:", the platform's type-information name
///          of T, a blank, the message), except for the two "not valid pointer" errors and those of the pool. The
///          destructor can throw too. The two "not valid pointer" errors and the pool's "double free poniter" leave the
///          record's lock held, deliberately: the books are wrong and nothing may go on with that record, whoever holds
///          it by now.
/// Threads: different pointers to one object may be copied and released from different threads. One pointer object must
///          not be written by two threads at once. Each copy and release costs one lock of the record, no allocation.
template <class T>
class SafePointer : public BaseSafePointer {
public:
    /// An empty pointer. No record is taken.
    SafePointer() noexcept : raw(nullptr), record(nullptr) {}

    /// Takes over `object`, made with plain `new`, with a record of its own and a count of 1.
    ///
    /// Hand an object to this constructor once and copy the pointer from then on: the pool does not look for an address
    /// that it holds already, and two pointers made from one address would each delete the object. When this throws
    /// ("too much safe poniter", std::bad_alloc, or the report of a null `object`) the object stays the caller's.
    explicit SafePointer(T* object) : raw(object), record(nullptr) {
        if (raw == nullptr) {
            reportError("Construct from NULL original pointer");
        }
        record = SafePointerPool::instance()->acquireRecord(raw, typeid(T).name());
    }

    /// Shares the object of `other`, which must be live.
    SafePointer(const SafePointer& other) : BaseSafePointer(other), raw(other.raw), record(other.record) {
        if (raw == nullptr) {
            reportError("Construct from NULL <T>pointer");
        }
        inc_reference();
    }

    /// Lets the old object go and shares that of `other`, which must be live. Assigning a pointer to itself does
    /// nothing, also when it is empty.
    ///
    /// The old object is let go first: `other` must not live inside it. When sharing fails after that, this pointer is
    /// as the release left it.
    SafePointer& operator=(const SafePointer& other) {
        if (this == &other) {
            return *this;
        }
        if (other.raw == nullptr) {
            reportError("Assigned NULL <T>pointer");
        }
        dec_reference();
        other.inc_reference();
        raw = other.raw;
        record = other.record;
        return *this;
    }

    // NOLINTNEXTLINE(bugprone-exception-escape): it may throw (see the class comment), and says so.
    ~SafePointer() noexcept(false) override { dec_reference(); }

    /// @return the object, never null: an empty or spent pointer is reported.
    T* operator->() const {
        if (raw == nullptr) {
            reportError("Use NULL pointer ->");
        }
        return raw;
    }

private:
    void inc_reference() const {
        if (record == nullptr) {
            reportError("Already destructed 1");
        }
        if (record->lock.lock() != 0) {
            reportError("Already destructed 2");
        }
        if (raw != record->address) {
            // Deliberate: not printed, and the lock stays held (see the class comment).
            throw WyRuntimeError("not valid pointer in inc_reference ");
        }
        if (record->count == 0) {
            static_cast<void>(record->lock.unlock());
            reportError("Already destructed 3");
        }
        ++record->count;
        static_cast<void>(record->lock.unlock());
    }

    void dec_reference() {
        if (raw == nullptr) {
            return;
        }
        // The result is not looked at: a release has to happen even when the lock lost its mark.
        static_cast<void>(record->lock.lock());
        if (raw != record->address) {
            // Deliberate: not printed, and the lock stays held (see the class comment).
            throw WyRuntimeError("not valid pointer in dec_reference");
        }
        if (--record->count == 0) {
            delete raw;
            raw = nullptr;
            // Still under the record's lock: record, then pool, is the order of the locks everywhere.
            SafePointerPool::instance()->releaseRecord(record, typeid(T).name());
        }
        static_cast<void>(record->lock.unlock());
    }

    [[noreturn]] static void reportError(const char* message) { reportMisuse(typeid(T).name(), message); }

    T* raw;                    ///< the object; null while empty or spent
    SafePointerRecord* record; ///< null only in a pointer made by default; never owned
};
