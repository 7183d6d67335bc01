/* Loads a module, and with it the library, while it runs. */
#include <Ecore.h>
#include <dlfcn.h>
#include <stdio.h>

int main(void) {
  int told = 0;
  void *module;
  ecore_app_no_system_modules();
  ecore_init();
  module = dlopen("./module.so", RTLD_NOW | RTLD_LOCAL);
  if (!module) {
    fprintf(stderr, "%s\n", dlerror());
    return 1;
  }
  int (*start)(void);
  void (*stop)(void);
  *(void **)&start = dlsym(module, "module_start");
  *(void **)&stop = dlsym(module, "module_stop");
  told = start();
  stop();
  dlclose(module);
  ecore_shutdown();
  printf("the module received a change of banner %d\n", told);
  return told != 7;
}
