// Loads what gralloc-layout loads and exits: the floor of a gralloc-layout run.
int main() {
    return 0;
}
