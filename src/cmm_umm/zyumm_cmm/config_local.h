/*
 * How the readers of node_config.xml find their elements; private to the configuration.
 */
#pragma once

#include "zyumm_cmm.h"

/*
 * The first element called `name` among the siblings behind `first_child`; null when there is none.
 *
 * Neither `first_child` itself nor anything below a sibling is looked at, and the search ends with
 * the parent's last child.
 *
 * first_child: where the search starts; null finds nothing.
 */
struct _mxml_node_s *config_find_sibling(struct _mxml_node_s *first_child, const char *name);
