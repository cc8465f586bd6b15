// The Python module `ferrotip`. A bad argument raises ValueError with the message
// the command line prints for it.
#include "Bindings.h"
#include "CliError.h"

PYBIND11_MODULE(ferrotip, module)
{
    module.doc() =
        "Audio repair on numpy arrays: the ferrotip repair methods, bit-identical to "
        "`ferrotip repair`, click and crackle removal, bit-identical to `ferrotip declick`, dropout "
        "finding and filling, declipping, "
        "and the Kalman restoration filter.";
    pybind11::register_exception_translator([](std::exception_ptr error) {
        try {
            if (error) std::rethrow_exception(error);
        } catch (const CliError& cliError) {
            PyErr_SetString(PyExc_ValueError, cliError.what());
        }
    });
    // Each docstring opens with its signature in Python's terms, not pybind11's.
    pybind11::options options;
    options.disable_function_signatures();
    ferrotip_python::registerRepair(module);
    ferrotip_python::registerDropouts(module);
    ferrotip_python::registerKalman(module);
    ferrotip_python::registerDeclick(module);
    ferrotip_python::registerDeclip(module);
}
