/*
 * One run of the program, from the sources to the report.
 */
#pragma once

#include "options.h"

/* The exit code; throws node_error when it could not begin. */
int run_node(const node_options &options);
