public let answer = 42
