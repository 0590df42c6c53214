/* empty: a library that costs what any library costs to load. */

int tevalonEmpty(void) {
    return 0;
}
