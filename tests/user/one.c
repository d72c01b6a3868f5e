/* A user library, first version. */

int version(void);
int calls(void);

int version(void)
{
    return 1;
}

/* Counts from 1 each time the library is loaded. */
int calls(void)
{
    static int n;
    return ++n;
}
