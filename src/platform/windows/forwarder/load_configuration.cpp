// The record in which the linker leaves, once for each of the two views of the forwarder, where the
// loader's changes for the other view stand and that imports are looked for in System32 only.
// Compiled without Windows' headers, which do not know one of the two views; theirs of this
// toolchain also is too short to hold those places.
struct LoadConfiguration {
    unsigned size;
    unsigned filledInByTheLinker[79];
};
static_assert(sizeof(LoadConfiguration) == 0x140);

extern "C" {
extern const LoadConfiguration _load_config_used;
alignas(8) const LoadConfiguration _load_config_used = {sizeof(LoadConfiguration), {}};
}
