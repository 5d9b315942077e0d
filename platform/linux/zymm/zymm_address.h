/*
 * Address map: from any number that somebody took for an object's address to the piece of memory
 * that it lies in, without touching the memory itself.
 */
#pragma once

#include <stdint.h>

namespace zymm
{

struct piece;

/* Enters a piece for a range of whole units. False when a node of the map could not be had. */
bool address_enter(const void *base, uint64_t bytes, piece *owner);

void address_remove(const void *base, uint64_t bytes);

/* The piece, or null. Takes no lock; the piece's descriptor stays readable, see zymm_store.h. */
piece *address_find(const void *object);

} // namespace zymm
