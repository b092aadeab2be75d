// A library that one variant of the virtual token engine depends on. The build puts it beside the
// test programs only, where the provider must not let the engine find it.
extern "C" __declspec(dllexport) int VteDependencyPresent() { return 1; }
