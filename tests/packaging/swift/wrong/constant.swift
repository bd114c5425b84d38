// error: cannot assign to value: 'loggingFirstTimeDelay' is a 'let' constant
import KXPublisher

func use() { loggingFirstTimeDelay = 1 }
