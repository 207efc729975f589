// A library with nothing in it: what loading any library costs.
extern "C" __attribute__((visibility("default"))) void tarquel_empty() {}
