/*
 * Atomic access to plain fields.
 *
 * The shared records are plain C, so their fields cannot be std::atomic. A field that several
 * threads touch is read and written through these functions only; each use argues its order.
 */
#pragma once

template <typename T>
inline T cmm_load_relaxed(const T *field)
{
    return __atomic_load_n(field, __ATOMIC_RELAXED);
}

template <typename T>
inline T cmm_load_acquire(const T *field)
{
    return __atomic_load_n(field, __ATOMIC_ACQUIRE);
}

template <typename T>
inline void cmm_store_relaxed(T *field, T value)
{
    __atomic_store_n(field, value, __ATOMIC_RELAXED);
}

template <typename T>
inline void cmm_store_release(T *field, T value)
{
    __atomic_store_n(field, value, __ATOMIC_RELEASE);
}

/* Adds with a full barrier and answers the new value. */
template <typename T>
inline T cmm_atomic_add(T *field, T value)
{
    return __atomic_add_fetch(field, value, __ATOMIC_SEQ_CST);
}

/* Subtracts with a full barrier and answers the new value; counts without a sign need it. */
template <typename T>
inline T cmm_atomic_sub(T *field, T value)
{
    return __atomic_sub_fetch(field, value, __ATOMIC_SEQ_CST);
}

/* Adds without ordering anything else and answers the new value; for statistics. */
template <typename T>
inline T cmm_atomic_add_relaxed(T *field, T value)
{
    return __atomic_add_fetch(field, value, __ATOMIC_RELAXED);
}

/* Stores `value` without ordering anything else and answers the old one; nothing added by another
 * thread in between is lost, as it would be with a load and a store. */
template <typename T>
inline T cmm_atomic_exchange_relaxed(T *field, T value)
{
    return __atomic_exchange_n(field, value, __ATOMIC_RELAXED);
}

/* Sets bits without ordering anything else and answers the old value. */
template <typename T>
inline T cmm_atomic_or_relaxed(T *field, T bits)
{
    return __atomic_fetch_or(field, bits, __ATOMIC_RELAXED);
}

/* Stores `desired` if the field holds `expected`, with a full barrier; true when it did. */
template <typename T>
inline bool cmm_atomic_claim(T *field, T expected, T desired)
{
    return __atomic_compare_exchange_n(field, &expected, desired, false, __ATOMIC_SEQ_CST,
                                       __ATOMIC_SEQ_CST);
}
