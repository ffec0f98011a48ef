#include <ms/MessageStore.h>

int main(int, char** arguments) {
  CKeyCarrier keys;
  CGroupID group;
  CMSMessageStore store(arguments[1], keys, nullptr, group, true, false, nullptr, "");
  return store.Root().Name() == "Root" ? 0 : 1;
}
