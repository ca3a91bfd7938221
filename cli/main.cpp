#include <cstdio>
int main() { std::puts("parlova-cli"); return 0; }
