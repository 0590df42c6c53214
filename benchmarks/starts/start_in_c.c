/* start_in_c: a process with nothing but the C library that ends at once. */

int main(void) {
    return 0;
}
