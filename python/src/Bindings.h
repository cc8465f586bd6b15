// Each group of the Python module registers its functions and classes here; the
// module file calls them in order.
#pragma once

#include <pybind11/pybind11.h>

namespace ferrotip_python {

void registerRepair(pybind11::module_& module);  // methods(), repair(), repair_regions(), Method
void registerDropouts(pybind11::module_& module);  // scan()
void registerKalman(pybind11::module_& module);  // Kalman
void registerDeclick(pybind11::module_& module);  // declick(), Declicker, mean_squares()
void registerDeclip(pybind11::module_& module);  // declip()

}  // namespace ferrotip_python
