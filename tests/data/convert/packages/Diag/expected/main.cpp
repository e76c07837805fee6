sys_RunScript("/script/Diag/main.cpp",NULL,0,NULL);
int main(int argc,char **argv){return 0;}
