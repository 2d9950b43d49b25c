#pragma once
// Routes as Python records, read straight from a state's forwarding tables: rova.routes().
// A script walking a full table gets each route with its FEC and vias resolved, without
// the text or JSON of a listing in between.

#include <pybind11/pybind11.h>

#include <string>

#include "python/State.h"

namespace rovapy {

// Registers rova.Route, rova.Fec, rova.Via, their iterator and rova.routes().
void addRoutes(py::module_& m);

}  // namespace rovapy
