/* A user library, second version: one function is new. */

int version(void);
int added(void);

int version(void)
{
    return 2;
}

int added(void)
{
    return 22;
}
