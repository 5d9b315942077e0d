/*
 * What the core contract tests need beyond the seam, for the platform that they run against.
 *
 * The tests are compiled once: under_test_fake.cpp or under_test_linux.cpp answers these.
 */
#pragma once

#include <cstdint>
#include <functional>
#include <string>

/* Error lines that the platform writes while `action` runs. */
uint64_t error_lines_of(const std::function<void()> &action);

/* Path of an ini file with one value in it, readable by zyax_cfg_init. */
std::string make_ini(const std::string &section, const std::string &key, const std::string &value);

/* A public pool for pub_mpool_alloc_i; never 0. */
uint64_t make_public_pool();
