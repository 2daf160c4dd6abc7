/* A shared object with one exported data symbol, loaded by the
   dynamic-library tests. */
struct TestPluginInfo {
  int version;
  int reserved;
  int (*answer)(void);
};

static int answer(void) { return 42; }

__attribute__((visibility("default"))) struct TestPluginInfo ostrelPlugin = {1, 0, answer};
