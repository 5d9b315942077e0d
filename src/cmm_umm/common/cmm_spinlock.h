/*
 * Spin locks inside the library's records: initialised in place, taken with the caller's place.
 */
#pragma once

#include "zyax.h"

inline constexpr zyax_spinlock CMM_SPINLOCK_UNLOCKED = {0, 0xdead4ead, 0xFFFFFFFF,
                                                        0xFFFFFFFFFFFFFFFF};

#define CMM_SPINLOCK_LOCK(lock)    do_zyax_spinlock_lock((lock), __func__, __LINE__)
#define CMM_SPINLOCK_TRYLOCK(lock) (do_zyax_spinlock_trylock((lock), __func__, __LINE__) != 0)
#define CMM_SPINLOCK_UNLOCK(lock)  do_zyax_spinlock_unlock(lock)
