// Linked with every object of one layer library and the layers below it: the
// link fails when the layer calls into a layer above it.
int main()
{
    return 0;
}
