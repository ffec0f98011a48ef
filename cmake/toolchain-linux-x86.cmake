# 32-bit Linux on a 64-bit one, with the multilib compiler. Its programs run here, so this is no
# cross build; only what is installed for 64 bits must not be linked.
set(CMAKE_CXX_FLAGS_INIT -m32)
set(CMAKE_C_FLAGS_INIT -m32)
