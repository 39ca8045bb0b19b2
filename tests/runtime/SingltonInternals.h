#pragma once

#include "runtime/Singlton.h"
#include "runtime/WyMutex.h"

#include <atomic>

/// Lets a test look at the private static members of `Singlton<Type>`; stands outside every namespace, once a type.
///
///     SINGLTON_INTERNALS(Counted);
///     EXPECT_EQ(InstancePointerOf(SingltonInternals<Counted>()).load(), nullptr);
#define SINGLTON_INTERNALS(Type)                                                                                       \
    template <>                                                                                                        \
    struct SingltonInternals<Type> {                                                                                   \
        friend WyMutex& CreationMutexOf(SingltonInternals);                                                            \
        friend std::atomic<Type*>& InstancePointerOf(SingltonInternals);                                               \
    };                                                                                                                 \
    template struct SingltonInternalsOf<Type, &Singlton<Type>::creationMutex, &Singlton<Type>::instancePointer>

template <class Type>
struct SingltonInternals;

template <class Type, auto mutexPointer, auto instancePointer>
struct SingltonInternalsOf {
    friend WyMutex& CreationMutexOf(SingltonInternals<Type>) { return *mutexPointer; }

    friend std::atomic<Type*>& InstancePointerOf(SingltonInternals<Type>) { return *instancePointer; }
};
