/* Does nothing: what is measured is how long it takes to begin. */
int main(void) { return 0; }
