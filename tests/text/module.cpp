// A shared object whose only content is its resources.
extern "C" int resource_module() {
  return 1;
}
