/* What a program for Visual C++ gets from its C library: the entry point. */
__declspec(dllimport, noreturn) void ExitProcess(unsigned code);
int main(void);

void mainCRTStartup(void) { ExitProcess((unsigned)main()); }
