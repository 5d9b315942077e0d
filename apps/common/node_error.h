/*
 * A failure that ends a chunk or the program: a text for the user, complete with path and offset.
 *
 * Thrown where it happens; what is held on the way is given back by its owner's destructor, so that
 * no failure leaves pages or requests out. The library itself never throws.
 */
#pragma once

#include <cstring>
#include <stdexcept>
#include <string>

struct node_error : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/* "what: reason", for a system call that has just failed with `error`. */
inline node_error system_failure(const std::string &what, int error)
{
    return node_error(what + ": " + std::strerror(error));
}
