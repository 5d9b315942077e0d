/*
 * Why a started library has no page, SGL or request pool.
 */
#pragma once

#include <string>

/* Empty when all three pools are there; otherwise a text for the user. */
std::string why_a_pool_is_missing();
