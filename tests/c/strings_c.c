/* The text functions, called from plain C. */

#include "stock/basicread.h"
#include "stock/debugchar.h"
#include "stock/expand_env.h"
#include "stock/hook.h"
#include "stock/pushstr.h"
#include "stock/strings.h"
#include "stock/strmatches.h"
#include "stock/xargs.h"
#include "stock/yesno.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;

static void check(int right, const char *what)
{
    if (!right) {
        printf("wrong: %s\n", what);
        ++failures;
    }
}

static void check_fields(void)
{
    char text[] = "::a::b:";
    Tbl *fields = split(text, ':');
    check(fields->count == 2 && !strcmp(gettbl(fields, 1), "b"), "split");
    freetbl(fields, NULL);
}

static void check_stack(void)
{
    void *stack = NULL;
    char *text = NULL;
    pushstr(&stack, "one");
    pushstrc(&stack, ',');
    check(pushstrn(&stack, "two and more", 3) == 7, "pushstrn");
    text = popstr(&stack, 1);
    check(!strcmp(text, "one,two") && !stack, "popstr");
    free(text);
    text = strjoin('/', "a", "b", (char *)NULL);
    check(!strcmp(text, "a/b"), "strjoin");
    free(text);
}

static void check_matching(void)
{
    Hook *hook = NULL;
    int start = 0, length = 0;
    check(strmatches("abc", "b", &hook) == 0, "strmatches");
    check(strcontains("abc", "b", &hook, &start, &length) == 1 && start == 1 && length == 1,
          "strcontains");
    free_hook(&hook);
    check(!hook, "free_hook");
}

static void check_lines(void)
{
    int64_t position = 0;
    char line[16];
    char *shown = debugcharstr("hello", 2);
    check(basicgetline("a\nb", 3, &position, line, 16) == 1 && !strcmp(line, "a"), "basicgetline");
    check(!strcmp(shown, "he"), "debugcharstr");
    free(shown);
}

int main(void)
{
    char text[] = " \tx \n";
    char *expanded = expand_env("a$");
    check(!strcmp(expanded, "a$"), "expand_env");
    free(expanded);
    strtrim(text);
    check(!strcmp(text, "x"), "strtrim");
    check(yesno("Off") == 0, "yesno");
    xargs("true", NULL, "true", 0);
    check_fields();
    check_stack();
    check_matching();
    check_lines();
    return failures != 0;
}
