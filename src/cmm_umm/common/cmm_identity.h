/*
 * Who calls the layers below.
 *
 * The library's own allocations and pools carry its module id and the name of the function that
 * makes them; a caller's identity is passed on untouched instead.
 */
#pragma once

#include "zyumm_cmm_types.h"

/* The two identity arguments of a platform call that the library makes for itself. */
#define CMM_SELF CMM_MODULE_ID, __func__
