// The test programs' shared precompiled header is compiled with this program.
int main() { return 0; }
