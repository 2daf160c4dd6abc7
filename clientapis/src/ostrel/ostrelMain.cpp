// The free functions of the client library. The connection functions arrive
// with the engine link; for now this holds the compatibility export.
extern "C" unsigned int RNIGetCompatibleVersion() { return 0x20000; }
