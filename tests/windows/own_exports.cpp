// For linkers that export from the machine's DLL whatever the program's start code defines as well:
// without this, programs linked with the DLL would have it twice.
__asm__(
    ".section .drectve, \"yni\"\n"
    ".ascii \" -exclude-symbols:atexit,unw_getcontext \"\n"
    ".text\n");
